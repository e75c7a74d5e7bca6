#include "commands/evidence.h"

#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include <fmt/format.h>

#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/wording.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

std::string NameIn(const std::string& path) {
    return path.substr(path.rfind('/') + 1); // 0 without any
}

/// Whether a path can be a file's: "dir/", "." and ".." cannot.
bool NamesFile(const std::string& path) {
    const std::string name = NameIn(path);
    return !name.empty() && name != "." && name != "..";
}

std::optional<std::string> IfGiven(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional(text);
}

/// @param output what names the output
std::string HintFor(const media::Error& error, const std::string& output) {
    if (error.SystemError() == ENOSPC || error.SystemError() == EDQUOT) {
        return "; make room there, or give another " + output;
    }
    switch (error.Kind()) {
    case media::ErrorKind::OutputExists:
        return "; give another " + output + ", or --force to replace it";
    case media::ErrorKind::StaleSignature:
        return "; move it away, give --sign, or another " + output;
    case media::ErrorKind::OutputIsSource:
    case media::ErrorKind::OutputIsNoFile:
        return "; give another " + output;
    case media::ErrorKind::CannotMake: // what the system did not refuse, another name does not help either
        return error.SystemError() != 0 ? "; give another " + output : "";
    case media::ErrorKind::OutputTwice:
        return "; give --audio another codec";
    case media::ErrorKind::BadKey:
        return "; make one with openssl genpkey -algorithm ed25519";
    default:
        return "";
    }
}

/// All who read a private key can sign in its owner's place.
void NoteIfOthersMayRead(const std::string& key) {
    struct stat status = {};
    if (stat(key.c_str(), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        Complain(key + ": others than its owner may read this private key; keep them out with chmod 600");
    }
}

} // namespace

media::Provenance ProvenanceOf(Context& context) {
    const Options& options = context.Typed();
    media::Provenance provenance;
    provenance.program = "diskaccess " DISKACCESS_VERSION;
    provenance.arguments = options.arguments;
    provenance.caseName = IfGiven(options.caseName);
    provenance.operatorName = IfGiven(options.operatorName);
    provenance.note = IfGiven(options.note);
    std::error_code none;
    provenance.sourcePath = std::filesystem::absolute(options.partition, none).string();
    for (const int descriptor : context.Disk().Bytes().Descriptors()) {
        struct stat status = {};
        if (fstat(descriptor, &status) == 0 && S_ISBLK(status.st_mode)) {
            provenance.isBlockDevice = true;
            provenance.device = media::ReadDeviceFacts(status.st_rdev);
        }
    }
    if (const std::optional<ClockCheck>& check = context.Checked()) {
        provenance.clockCheck = media::ClockCheck{context.Zone().Rfc3339(check->recorderTime),
                                                  context.Zone().Rfc3339(check->trueTime)};
    }
    if (options.hashSource) {
        // Once, however many exports there are.
        provenance.hashSource = [&context, known = std::make_shared<std::optional<media::AreaDigest>>()] {
            const recordings::Source& bytes = context.Disk().Bytes();
            if (!*known) {
                *known = media::HashArea(bytes, 0, bytes.Size(),
                                         InterruptibleWatch(context, "hashing the source"));
            }
            return **known;
        };
    }
    return provenance;
}

void CheckOutputName(const Options& options) {
    if (!NamesFile(options.output)) {
        throw WrongUse("--output: '" + options.output + "' names no file; give a file's name");
    }
    if (!IsText(NameIn(options.output))) {
        throw WrongUse("--output: '" + options.output +
                       "' is not UTF-8, and no manifest can name it; give another name");
    }
}

void FillRequest(Context& context, media::Request& request) {
    const Options& options = context.Typed();
    request.name = options.output;
    request.range = context.Asked().range;
    request.fromGiven = !options.from.empty();
    request.toGiven = !options.to.empty();
    request.channels = context.Asked().channels;
    request.replace = options.force;
    request.made = context.Zone().Rfc3339(std::time(nullptr));
    request.skewSeconds = options.skew;
    request.zone = context.Zone().Name();
    request.wording = WordingOf(context.Zone(), context.Clock());
    request.provenance = ProvenanceOf(context);
}

std::optional<media::SigningKey> ReadSigningKey(const Options& options) {
    if (options.signingKey.empty()) {
        return std::nullopt;
    }
    try {
        media::SigningKey key(options.signingKey);
        NoteIfOthersMayRead(options.signingKey);
        return key;
    } catch (const media::Error& error) {
        throw ToFailure(error);
    }
}

Failure ToFailure(const media::Error& error, const std::string& output) {
    return Failure(error.what() + HintFor(error, output));
}

Value PathOrNothing(const std::string& path) {
    return path.empty() ? Value(Nothing()) : Value(Printable(path));
}

recordings::Watch InterruptibleWatch(Context& context, const std::string& doing) {
    return [show = context.Watch(doing)](const recordings::Progress& progress) {
        return show(progress) && !Interruption::Asked();
    };
}

void NoteSourceDigest(const Context& context, const std::optional<media::AreaDigest>& digest) {
    if (digest && digest->unreadable != 0) {
        Complain(
            fmt::format("{}: {} bytes cannot be read; in the SHA-256 of the whole source they count as zeros",
                        context.Typed().partition, digest->unreadable));
    }
}

} // namespace diskaccess
