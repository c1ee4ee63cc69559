#include "host/explain/shell_file_judgement.h"

#include <sys/stat.h>

#include "host/explain/own_events.h"
#include "inspect/detect_shell_utils.h"
#include "shellfile/shell_baseline.h"
#include "shellfile/shell_copy.h"

namespace Host {
namespace {

std::vector<OwnEvent> EventsOfExec(int pid) {
    return EventsOf([pid] {
        proc_event event{};
        event.what = decltype(event.what)::PROC_EVENT_EXEC;
        event.event_data.exec.process_pid = pid;
        event.event_data.exec.process_tgid = pid;
        ShellExecCallback(&event);
    });
}

void AddTests(const Scene& scene, const std::string& path, Judgement& judgement) {
    if (!judgement.Check(!IsShellFile(path), "its program is not one of the host's shells: " + path,
                         "its program is one of the host's shells: " + path)) {
        return;
    }
    struct stat info {};
    if (!judgement.Check(stat(path.c_str(), &info) == 0, "its program file is there",
                         "its program file is not there: " + path)) {
        return;
    }
    const std::string size = std::to_string(info.st_size) + " bytes";
    if (!judgement.Check(IsShellSize(static_cast<unsigned long>(info.st_size)), "it is as long as a shell: " + size,
                         "no shell is as long as it is: " + size)) {
        return;
    }
    judgement.Check(IsShellByHash(path), "it has the content of a shell", "it has the content of no shell");
    judgement.Check(!scene.own.cmdline.empty(), "it shows a command line", "it shows no command line");
}

}  // namespace

Judgement JudgeByShellFile(const Scene& scene) {
    Judgement judgement{.detection = "shell file protection, copy", .reported = false, .verdict = {}, .tests = {}};
    const std::string path = DetectShellUtil::GetProcExe(scene.pid);
    const std::vector<OwnEvent> events = EventsOfExec(scene.pid);
    AddTests(scene, path, judgement);
    judgement.reported = !events.empty();
    if (judgement.reported) {
        judgement.verdict = "at its exec, as a copy of " + events.front().path;
    } else if (IsShellFile(path)) {
        judgement.verdict = "only a change of the file";
    }
    return judgement;
}

}  // namespace Host
