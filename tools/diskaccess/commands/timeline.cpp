#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "cli/duration.h"
#include "commands/commands.h"
#include "commands/coverage.h"
#include "commands/evidence.h"
#include "media/error.h"
#include "media/output_file.h"
#include "render/printable.h"
#include "render/timeline/html.h"
#include "render/timeline/svg.h"
#include "render/timeline/text.h"

namespace diskaccess {

namespace {

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// Whether the user's locale has UTF-8; the first of these variables that is set decides.
bool HasUnicode() {
    for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const std::string locale = Environment(name);
        if (!locale.empty()) {
            return locale.find("UTF-8") != std::string::npos || locale.find("utf8") != std::string::npos;
        }
    }
    return false;
}

/// Columns of the terminal; what COLUMNS says, or 80, where there is none.
size_t Columns() {
    constexpr unsigned long kUsual = 80;
    constexpr unsigned long kMost = 1000;
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
        return size.ws_col;
    }
    const unsigned long columns = std::strtoul(Environment("COLUMNS").c_str(), nullptr, 10);
    return columns == 0 ? kUsual : std::min(columns, kMost);
}

timeline::TextStyle StyleOfTerminal() {
    timeline::TextStyle style;
    style.width = Columns();
    style.unicode = HasUnicode();
    style.colour =
        isatty(STDOUT_FILENO) == 1 && Environment("NO_COLOR").empty() && Environment("TERM") != "dumb";
    return style;
}

/// The files that are asked for.
std::vector<std::string> PathsOf(const Options& options) {
    std::vector<std::string> paths;
    for (const std::string& path : {options.svg, options.html}) {
        if (!path.empty()) {
            paths.push_back(path);
        }
    }
    return paths;
}

/// Does something with files, and says what to do where it cannot be done.
template <typename Work>
void WithFiles(const Context& context, const Work& work) {
    try {
        work(media::OutputRules{context.Source(), context.Typed().force});
    } catch (const media::Error& error) {
        throw ToFailure(error, "name");
    }
}

void RequireFileName(const std::string& option, const std::string& path) {
    if (!path.empty() && path.back() == '/') {
        throw WrongUse(option + ": '" + path + "' names no file; give a file's name");
    }
}

/// Where a file lies or would lie, however it is named.
std::filesystem::path PlaceOf(const std::string& path) {
    std::error_code none;
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path, none), none);
}

} // namespace

timeline::Labels LabelsOf(const Context& context) {
    timeline::Labels labels;
    labels.title = Printable(context.Typed().partition);
    labels.time = [&context](uint32_t second) {
        return context.Zone().Text(context.Clock().TrueTime(second).seconds);
    };
    labels.shift = [&context](uint32_t second) {
        const int64_t time = context.Clock().TrueTime(second).seconds;
        return time - int64_t{second} + context.Zone().OffsetAt(time);
    };
    labels.channel = [&context](uint32_t channel) { return context.Names().ChannelText(channel); };
    labels.eventTypes = [&context](uint64_t types) { return context.Names().EventText(types); };
    labels.problem = [&context](const recordings::Problem& problem) {
        return Describe(problem, [&context](int64_t micros) {
            return context.Zone().TextOfMicros(context.Clock().TrueInstant(micros).micros);
        });
    };
    return labels;
}

recordings::Coverage CoverageOf(Context& context) {
    recordings::JourneyQuery query;
    query.channels = context.Asked().channels;
    query.silence = ReadDuration(context.Typed().silence, "--silence");
    recordings::Coverage coverage = ReadCoverage(context.Disk(), context.Blocks(), query, context.Problems(),
                                                 context.Watch("reading indexes"));
    auto& journeys = coverage.journeys;
    journeys.erase(std::remove_if(journeys.begin(), journeys.end(),
                                  [&context](const recordings::JourneyCoverage& each) {
                                      return !context.Asked().range.Meets(each.journey.start,
                                                                          each.journey.end);
                                  }),
                   journeys.end());
    for (recordings::JourneyCoverage& each : journeys) {
        for (recordings::Event& event : each.events) {
            event.channel = ChannelOf(context.Disk(), event);
        }
    }
    return coverage;
}

std::string NothingRecorded(const Context& context) {
    return context.Disk().Hidden().Empty() ? "Nothing is recorded."
                                           : "Nothing is recorded of channels that are not locked.";
}

void CheckTimeline(const Options& options) {
    CheckJourneys(options);
    RequireFileName("--svg", options.svg);
    RequireFileName("--html", options.html);
    if (!options.svg.empty() && !options.html.empty() && PlaceOf(options.svg) == PlaceOf(options.html)) {
        throw WrongUse("--html: '" + options.html + "' is the file of --svg; give each its own");
    }
}

ExitCode Timeline(Context& context) {
    WithFiles(context,
              [&](const media::OutputRules& rules) { media::CheckPlaces(PathsOf(context.Typed()), rules); });
    const recordings::Coverage coverage = CoverageOf(context);
    const timeline::Labels labels = LabelsOf(context);
    std::vector<media::FileContents> files;
    if (!context.Typed().svg.empty()) {
        files.push_back({context.Typed().svg, timeline::Svg(coverage, labels)});
    }
    if (!context.Typed().html.empty()) {
        files.push_back({context.Typed().html, timeline::Html(coverage, labels)});
    }
    if (files.empty()) {
        const std::string text = timeline::Text(coverage, labels, StyleOfTerminal());
        context.Answer().ShowProse({text.empty() ? NothingRecorded(context) + "\n" : text});
    } else {
        WithFiles(context, [&](const media::OutputRules& rules) { media::WriteFiles(files, rules); });
    }
    return context.Finish();
}

} // namespace diskaccess
