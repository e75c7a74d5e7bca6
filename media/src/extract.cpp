#include "media/extract.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "area_reader.h"
#include "blocks_of_range.h"
#include "digest.h"
#include "file_writer.h"
#include "manifest_writer.h"
#include "output_place.h"
#include "recordings/error.h"
#include "signed_file.h"
#include "watcher.h"

namespace media {

namespace {

using recordings::Problem;
using recordings::ProblemKind;

bool AllZero(const AreaReader::Piece& piece) {
    return std::all_of(piece.data, piece.data + piece.size, [](uint8_t byte) { return byte == 0; });
}

class Extractor {
public:
    Extractor(const recordings::Disk& disk, const recordings::BlockList& blocks, const SourceIdentity& source,
              const Request& request, const recordings::ProblemSink& problems, Watcher& watcher)
        : m_disk(disk), m_blocks(blocks), m_rules({source, request.replace}), m_request(request),
          m_report(problems), m_watcher(watcher), m_outputs(m_rules, [&watcher] { watcher.Ask(); }) {}

    std::optional<ExtractResult> Run() {
        m_result.image = m_request.name;
        m_result.manifest = m_request.ManifestName();
        OutputPlace(m_result.image).Check(m_rules);
        OutputPlace(m_result.manifest).Check(m_rules);
        CheckSignaturePlace(m_request, m_rules);
        for (const Problem& problem : m_disk.OpeningProblems()) {
            Take(problem);
        }
        const std::set<uint32_t> chosen = BlocksOfRange(
            m_disk, m_blocks, m_request.range, m_request.channels,
            [this](const Problem& problem) { Take(problem); }, m_watcher.Silent());
        if (chosen.empty()) {
            return std::nullopt;
        }
        OutputFile& image = m_outputs.Make(m_result.image);
        OutputFile& manifest = m_outputs.Make(m_result.manifest);
        Copy(chosen, image);
        m_outputs.CompleteOthers(manifest);
        m_result.headDigest = HashArea(m_disk.Bytes(), 0, recordings::kPartitionHeadBytes);
        if (m_request.provenance.hashSource) {
            m_result.sourceDigest = m_request.provenance.hashSource();
        }
        Describe(manifest);
        m_watcher.Ask();
        m_outputs.Publish();
        return std::move(m_result);
    }

private:
    void Take(const Problem& problem) {
        m_problems.Add(problem);
        if (m_report) {
            m_report(problem);
        }
    }

    // ---- copying

    void Copy(const std::set<uint32_t>& chosen, OutputFile& image) {
        m_result.imageSize = m_disk.Bytes().Size();
        m_total = m_disk.StartOf(0) + chosen.size() * uint64_t{m_disk.Facts().blockSize};
        image.Bytes().MakeSparse();
        m_result.areas.push_back(CopyArea(0, m_disk.StartOf(0), std::nullopt, image.Bytes()));
        for (const uint32_t block : chosen) {
            m_result.blocks.push_back(
                {block, CopyArea(m_disk.StartOf(block), m_disk.Facts().blockSize, block, image.Bytes())});
        }
        SkipTo(m_result.imageSize, image.Bytes());
    }

    static void SkipTo(uint64_t offset, FileWriter& image) {
        if (offset > image.Size()) {
            image.Skip(offset - image.Size());
        }
    }

    AreaDigest CopyArea(uint64_t offset, uint64_t size, std::optional<uint32_t> block, FileWriter& image) {
        SkipTo(offset, image);
        AreaReader reader(m_disk.Bytes(), offset, size,
                          [this, block](uint64_t from, uint64_t to) { Miss(block, from, to); });
        Digest digest;
        for (AreaReader::Piece piece = reader.Next(); piece.size != 0; piece = reader.Next()) {
            digest.Add(piece.data, piece.size);
            Put(piece, image);
            m_done += piece.size;
            m_watcher.Reading()({m_done, m_total, m_done});
            m_watcher.Ask();
        }
        return {offset, size, digest.Text(), reader.UnreadableBytes()};
    }

    /// Appends what lies inside the partition. What is zero becomes a hole.
    void Put(const AreaReader::Piece& piece, FileWriter& image) const {
        const auto inside = static_cast<size_t>(std::min<uint64_t>(
            piece.size, m_result.imageSize - std::min<uint64_t>(image.Size(), m_result.imageSize)));
        if (AllZero(piece)) {
            image.Skip(inside);
        } else {
            image.Write(piece.data, inside);
        }
    }

    /// Names what the disk does not deliver. That it ends too early is named already.
    void Miss(std::optional<uint32_t> block, uint64_t from, uint64_t to) {
        if (from >= m_result.imageSize) {
            return;
        }
        Problem problem;
        if (block) {
            const uint64_t frames = m_disk.StartOf(*block) + m_disk.Layout().frames;
            problem.kind = ProblemKind::BytesUnreadable;
            problem.block = block;
            problem.offset = static_cast<uint32_t>(std::max(from, frames) - frames);
            problem.bytes = to - from;
        } else {
            problem.kind = ProblemKind::TablesUnreadable;
        }
        Take(problem);
    }

    // ---- the manifest

    void Describe(OutputFile& manifest) {
        m_result.problems = m_problems.All();
        SignedFile file(manifest, m_request.key);
        const ManifestWriter::Write write = [&file](const std::string& text) { file.Write(text); };
        WriteManifest(write);
        manifest.Complete();
        if (m_request.key != nullptr) {
            m_result.signature = m_request.SignatureName();
            file.Sign(m_outputs.Make(m_result.signature));
        }
    }

    void WriteManifest(const ManifestWriter::Write& write) const {
        ManifestWriter writer(m_disk, m_request, write);
        writer.Begin("extract", m_result.blocks.front().number, m_result.headDigest, m_result.sourceDigest);
        writer.AskedFor();
        writer.Member("image", {{"file", std::filesystem::path(m_result.image).filename().string()},
                                {"size_bytes", ManifestWriter::NumberOf(m_result.imageSize)}});
        writer.List("areas", m_result.areas,
                    [](const AreaDigest& area) { return ManifestWriter::AreaOf(area); });
        writer.List("blocks", m_result.blocks, [this, &writer](const CopiedBlock& copied) {
            ManifestWriter::Json json = {{"block", copied.number}};
            json.update(ManifestWriter::AreaOf(copied.area));
            const auto entry = m_blocks.Find(copied.number);
            if (entry) {
                const recordings::Block& block = m_blocks.All()[*entry];
                json["sequence"] = block.sequence;
                json["start"] = writer.TimeOfSeconds(block.start);
                json["closed"] = block.closed;
            }
            return json;
        });
        writer.Problems(m_result.problems);
        writer.End();
    }

    const recordings::Disk& m_disk;
    const recordings::BlockList& m_blocks;
    OutputRules m_rules;
    const Request& m_request;
    const recordings::ProblemSink& m_report;
    Watcher& m_watcher;
    Outputs m_outputs;
    recordings::ProblemList m_problems;
    ExtractResult m_result;
    uint64_t m_done = 0;
    uint64_t m_total = 0;
};

} // namespace

std::optional<ExtractResult> Extract(const recordings::Disk& disk, const recordings::BlockList& blocks,
                                     const SourceIdentity& source, const Request& request,
                                     const recordings::ProblemSink& problems,
                                     const recordings::Watch& watch) {
    Watcher watcher(watch, kExportEnded);
    return Extractor(disk, blocks, source, request, problems, watcher).Run();
}

} // namespace media
