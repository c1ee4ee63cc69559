#include "host/explain/short_commands_judgement.h"

#include "classifier/ssh_daemon.h"
#include "classifier/tmp_command_verdict.h"
#include "frame/whitelist.h"
#include "host/explain/alarm_tests.h"
#include "host/explain/kernel_look.h"
#include "host/explain/own_events.h"
#include "host/explain/socket_tests.h"
#include "inspect/detect_shell_utils.h"
#include "inspect/kernel_wait.h"

namespace Host {
namespace {

constexpr int oldestSocketSeconds = 100;

// The process stands as the parent, and what it starts is the process that the alarm is about.
bool AddTests(const Scene& scene, Judgement& judgement) {
    bool passed =
        judgement.Check(!IsSshdShell(scene.pid), "its program is not the ssh daemon", "its program is the ssh daemon");
    passed =
        judgement.Check(!IsCmdInIgnoreList(scene.own.cmdline), "its command line begins with no entry of the whitelist",
                        "its command line begins with an entry of the whitelist") &&
        passed;
    unsigned long inode = 0;
    if (!judgement.Check(ReadingFromSock(scene.pid, inode), "it waits for input from " + SocketText(scene, inode),
                         "it does not wait for input from an internet socket: " + WaitText(scene.pid))) {
        return false;
    }
    const int written = DetectShellUtil::ParseWriteCharsNum(scene.pid);
    passed = judgement.Check(written != 0, "it has written " + std::to_string(written) + " bytes",
                             "it has written nothing") &&
             passed;
    SocketInfo sock;
    bool refreshed = false;
    if (!CheckAbnormal(scene, inode, sock, refreshed, judgement)) {
        return false;
    }
    NoteSocketAge(scene.pid, oldestSocketSeconds, judgement);
    const size_t before = judgement.tests.size();
    AddAlarmTests(ProcInfo{}, scene.own, sock, Finder::withRecord, judgement);
    for (size_t i = before; i < judgement.tests.size(); ++i) {
        passed = passed && judgement.tests[i].mark != Mark::no;
    }
    return passed;
}

}  // namespace

Judgement JudgeByShortCommands(const Scene& scene) {
    Judgement judgement{.detection = "short commands", .reported = false, .verdict = {}, .tests = {}};
    bool verdict = false;
    EventsOf([&] { verdict = RaiseTmpCommandAlarm(scene.pid, TPROC_INFO{}); });
    const bool passed = AddTests(scene, judgement);
    judgement.reported = verdict && passed;
    judgement.Note(
        "it takes two short commands besides, such as ls, that a running agent saw it start at least 200 ms apart and "
        "that have ended");
    judgement.verdict = judgement.reported ? "once two short commands of it have ended" : "";
    return judgement;
}

}  // namespace Host
