#include "commands/export_list.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "cli/failure.h"
#include "cli/output.h"
#include "cli/query.h"
#include "cli/range_list.h"
#include "cli/typed_time.h"
#include "commands/evidence.h"
#include "commands/export_options.h"
#include "commands/wording.h"
#include "media/earlier.h"
#include "media/error.h"
#include "recordings/query.h"

namespace diskaccess {

namespace {

using media::ExportRequest;

using recordings::kMicros;

/// Reads the rows of one list.
class Reader {
public:
    Reader(Context& context, const ExportRequest& whole)
        : m_context(context), m_whole(whole), m_now(std::time(nullptr)) {}

    ListedExport Read(const ListedRange& range) {
        const std::string row = RowText(File(), range.row);
        try {
            ListedExport listed = ListedOf(range);
            listed.row = row;
            Claim(listed.RequestOf(m_whole), range.row);
            return listed;
        } catch (const Failure& failure) {
            throw Failure(row + ": " + failure.what());
        }
    }

private:
    const std::string& File() const { return m_context.Typed().rangeList; }

    ListedExport ListedOf(const ListedRange& range) const {
        const Options options = OptionsOf(range);
        const Query query = ReadQuery(options, m_context.Zone(), m_context.Names(), m_now);
        RequireFixedTimes(range);
        ListedExport listed;
        listed.range = query.range;
        listed.channels = query.channels;
        listed.name = m_context.Typed().output + NameOf(range, query);
        listed.container = ContainerOf(options, listed.name);
        CheckName(listed.name);
        listed.caseName = range.caseName;
        listed.note = range.note;
        return listed;
    }

    /// A list that is run again must mean the same times: else it would refuse the files that it has made.
    void RequireFixedTimes(const ListedRange& range) const {
        constexpr int64_t kLater = int64_t{400} * 86400;
        const int64_t later = m_now + kLater;
        const int64_t from = FirstSecondOf(range.from, {m_now, m_now});
        Require(range.from, from == FirstSecondOf(range.from, {later, later}));
        Require(range.to, FirstSecondOf(range.to, {m_now, from}) == FirstSecondOf(range.to, {later, from}));
    }

    int64_t FirstSecondOf(const std::string& text, const Present& present) const {
        return ReadTime(text, m_context.Zone(), present, Twice::First).first;
    }

    static void Require(const std::string& text, bool isFixed) {
        if (!isFixed) {
            throw Failure("'" + text +
                          "' is another time on another day; give a date and a time, or @SECONDS");
        }
    }

    /// What would be typed for this range alone.
    Options OptionsOf(const ListedRange& range) const {
        Options options = m_context.Typed();
        options.from = range.from;
        options.to = range.to;
        if (!range.channels.empty()) {
            options.channels = range.channels;
        }
        return options;
    }

    /// The first second names a file that is not named, and its channel does where there is one.
    std::string NameOf(const ListedRange& range, const Query& query) const {
        if (!range.file.empty()) {
            return range.file;
        }
        std::string name =
            FileTime(m_context.Zone(), m_context.Clock(), int64_t{query.range.first} * kMicros);
        for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
            if (query.channels.bits == 1u << channel) {
                name += fmt::format("-channel-{}", channel);
            }
        }
        return name + (m_context.Typed().container == "mp4" ? ".mp4" : ".mkv");
    }

    void CheckName(const std::string& path) const {
        const std::string name = path.substr(m_context.Typed().output.size());
        if (name.find_first_of("/\\") != std::string::npos || name == "." || name == "..") {
            throw Failure("'" + name + "' is no file's name; give a name without a folder");
        }
        RefuseOtherKinds(m_context.Typed(), name, "");
    }

    /// Takes a row's names, which no other may have. Some file systems do not tell large letters from small ones.
    void Claim(const ExportRequest& request, size_t row) {
        for (const std::string& name : {request.name, request.ManifestName(), request.SignatureName()}) {
            std::string small = name;
            std::transform(small.begin(), small.end(), small.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            const auto [claim, isFree] = m_rows.emplace(small, row);
            if (!isFree) {
                throw Failure(fmt::format("{}: is the name of a file of row {} too; give each row another",
                                          name, claim->second));
            }
            std::error_code none;
            if (std::filesystem::equivalent(name, File(), none)) {
                throw Failure(name + ": is the list itself; give another name");
            }
        }
    }

    Context& m_context;
    const ExportRequest& m_whole;
    int64_t m_now;
    std::map<std::string, size_t> m_rows; ///< by names that they take
};

/// A change of encoding goes on in a file NAME-2: no other row may replace that.
void CheckPartNames(const std::vector<ListedExport>& exports) {
    std::map<std::string, const std::string*> rows;
    for (const ListedExport& each : exports) {
        rows.emplace(each.name, &each.row);
    }
    for (const ListedExport& each : exports) {
        const std::string& name = each.name;
        const std::string ending = std::filesystem::path(name).extension().string();
        const std::string stem = name.substr(0, name.size() - ending.size());
        const size_t digits = stem.find_last_not_of("0123456789") + 1; // of none: 0
        const bool numbered = digits != 0 && digits < stem.size() && stem[digits - 1] == '-';
        const auto whole = numbered ? rows.find(stem.substr(0, digits - 1) + ending) : rows.end();
        if (whole != rows.end()) {
            throw Failure(fmt::format("{}: {}: with --force it could replace a part of the file of {}; name "
                                      "it otherwise, or leave --force out",
                                      each.row, name, *whole->second));
        }
    }
}

/// The value that an option was typed with, as a manifest has it.
std::string ValueOf(const std::string& option, const std::vector<std::string>& arguments) {
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == option) {
            return i + 1 < arguments.size() ? arguments[i + 1] : "";
        }
        if (arguments[i].rfind(option + "=", 0) == 0) {
            return arguments[i].substr(option.size() + 1);
        }
    }
    return "";
}

/// What has the name of an export already, held against all that was asked for.
media::Earlier EarlierOf(Context& context, const ExportRequest& request) {
    media::Earlier earlier = LookForEarlier(context.Disk(), context.Blocks(), request,
                                            context.Watch("looking at the files that are there"));
    if (earlier.isThere && earlier.difference.empty() &&
        ValueOf("--audio", earlier.arguments) != context.Typed().audio) {
        earlier.difference = "it was made with another --audio";
    }
    return earlier;
}

/// @return why it cannot be made; empty when it can
std::string WhyNot(Context& context, const ExportRequest& request, const media::Earlier& earlier) {
    if (earlier.isThere && !request.replace) {
        return fmt::format("{}: is there, and is not what this row makes: {}; move it away, or give --force",
                           request.name, earlier.difference);
    }
    try {
        media::CheckPlaces(context.Disk(), context.Source(), request);
        return "";
    } catch (const media::Error& error) {
        return ToFailure(error).what();
    }
}

} // namespace

ExportRequest ListedExport::RequestOf(const ExportRequest& whole) const {
    ExportRequest request = whole;
    request.range = range;
    request.fromGiven = true;
    request.toGiven = true;
    request.channels = channels;
    request.name = name;
    request.container = container;
    request.aac = request.aac && container == media::Container::Mp4;
    if (!caseName.empty()) {
        request.provenance.caseName = caseName;
    }
    if (!note.empty()) {
        request.provenance.note = note;
    }
    return request;
}

std::vector<ListedExport> ReadListedExports(Context& context, const ExportRequest& whole) {
    const Options& options = context.Typed();
    std::error_code none;
    if (!std::filesystem::is_directory(options.output, none)) {
        throw Failure(options.output + ": is no folder; make it first");
    }
    Reader reader(context, whole);
    std::vector<ListedExport> exports;
    for (const ListedRange& range : ReadRangeList(options.rangeList)) {
        exports.push_back(reader.Read(range));
    }
    if (options.force) {
        CheckPartNames(exports);
    }
    return exports;
}

ListedWork LookAtPlaces(Context& context, const ExportRequest& whole, std::vector<ListedExport> exports) {
    ListedWork work;
    work.rows = exports.size();
    for (ListedExport& each : exports) {
        const ExportRequest request = each.RequestOf(whole);
        const media::Earlier earlier = EarlierOf(context, request);
        if (earlier.isThere && earlier.difference.empty()) {
            Complain(request.name + ": is there already" +
                     (earlier.lost ? ", and its manifest names what is missing in it" : ""));
            work.lost = work.lost || earlier.lost;
            ++work.skipped;
            continue;
        }
        const std::string why = WhyNot(context, request, earlier);
        if (why.empty()) {
            work.open.push_back(std::move(each));
        } else {
            work.failures.push_back(each.row + ": " + why);
        }
    }
    return work;
}

} // namespace diskaccess
