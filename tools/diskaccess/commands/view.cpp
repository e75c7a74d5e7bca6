#include <fmt/format.h>
#include <malloc.h>
#include <media/sink.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "commands/wording.h"
#include "view/api.h"
#include "view/clean_pages.h"
#include "view/gate.h"
#include "view/http.h"

namespace diskaccess {

namespace {

bool HasDesktop() {
    return std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr;
}

bool StartsBrowser(const Options& options) {
    return !options.noBrowser && geteuid() != 0 && HasDesktop();
}

/// Has the desktop show a page. What it shows it with goes on after this program ends.
void OpenBrowser(const std::string& url) {
    std::string opener = "xdg-open";
    std::string page = url;
    char* arguments[] = {opener.data(), page.data(), nullptr};
    pid_t child = 0;
    if (posix_spawnp(&child, opener.c_str(), nullptr, nullptr, arguments, environ) == 0) {
        waitpid(child, nullptr, WNOHANG);
    }
}

view::Setting SettingOf(Context& context) {
    const Options& options = context.Typed();
    return {options.partition,
            context.Zone(),
            options.zone,
            context.Clock(),
            options.skew,
            context.Names(),
            options.exportFolder,
            context.Source(),
            WordingOf(context.Zone(), context.Clock()),
            ProvenanceOf(context),
            [&context] { return context.OpenAnother(); }};
}

/// The viewer stays for hours, and reads whole blocks on many threads: the memory of each goes back to the system when an
/// answer has been sent. Key frames stay below this size, and in the heap.
void GiveMemoryBack() {
    constexpr int kLarge = 1 << 20;
    mallopt(M_MMAP_THRESHOLD, kLarge);
    mallopt(M_TRIM_THRESHOLD, kLarge);
    mallopt(M_ARENA_MAX, 2); // else each thread may keep a heap of its own
}

void WaitForInterruption() {
    constexpr int kTenthOfSecond = 100;
    while (!Interruption::Asked()) {
        poll(nullptr, 0, kTenthOfSecond);
    }
}

} // namespace

void CheckView(const Options& options) {
    std::error_code none;
    if (!std::filesystem::is_directory(options.exportFolder, none)) {
        throw WrongUse("--export-dir: '" + options.exportFolder + "' is no folder; make it first");
    }
}

/// A browser would be confined with the program that starts it, and could not work.
std::optional<Needs> NeedsOfView(const Options& options) {
    if (StartsBrowser(options)) {
        return std::nullopt;
    }
    std::optional<Needs> needs = NeedsOfReading(options);
    needs->writable.push_back(options.exportFolder);
    needs->network = true;
    return needs;
}

ExitCode View(Context& context) {
    GiveMemoryBack();
    media::QuietContainers();
    const Options& options = context.Typed();
    const Interruption interruption;
    const std::string token = view::MakeToken();
    view::Api api(SettingOf(context), token);
    const view::HttpServer server(options.port,
                                  [&api](const view::Request& request) { return api.Answer(request); });
    const std::string url = fmt::format("http://127.0.0.1:{}/#token={}", server.Port(), token);
    context.Print(url + "\n");
    Complain("open this address in a browser; Ctrl-C ends the viewer");
    if (StartsBrowser(options)) {
        OpenBrowser(url);
    }
    view::GiveCleanPagesBack();
    WaitForInterruption();
    Complain("the viewer has ended");
    return kDone;
}

} // namespace diskaccess
