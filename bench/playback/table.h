#ifndef BENCH_PLAYBACK_TABLE_H
#define BENCH_PLAYBACK_TABLE_H

#include <string>
#include <vector>

#include "playback/measure.h"
#include "playback/waits.h"

namespace playback_bench {

/// Explains the columns of the tables of readers.
void PrintLegend();

/// Prints readers beside each other.
void PrintReaders(const std::string& title, const std::vector<Variant>& variants,
                  const std::vector<Measurement>& measurements);

/// Prints how long single operations keep a player waiting.
void PrintWaits(const std::vector<Operation>& operations, const std::vector<Wait>& waits);

} // namespace playback_bench

#endif // BENCH_PLAYBACK_TABLE_H
