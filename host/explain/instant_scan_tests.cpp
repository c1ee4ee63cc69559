#include "host/explain/instant_scan_tests.h"

#include <set>

#include "agent/strings.h"
#include "alarm/command_attribution.h"
#include "classifier/ssh_daemon.h"
#include "host/explain/alarm_tests.h"
#include "host/explain/kernel_look.h"
#include "host/explain/socket_tests.h"
#include "inspect/kernel_wait.h"

namespace Host {
namespace {

constexpr int youngestSocketSeconds = 3;
constexpr size_t mostWritersTold = 4;

std::string PipeText(unsigned long pipe) {
    return "pipe " + std::to_string(pipe);
}

std::vector<const ProcInfo*> Writers(const Scene& scene, const ReverseShell& classifier, unsigned long pipe) {
    std::vector<const ProcInfo*> writers;
    for (const ProcInfo& proc : classifier.procs) {
        if (proc.pid != scene.pid && proc.writePipes.contains(pipe)) {
            writers.push_back(&proc);
        }
    }
    return writers;
}

// What the writers lack, of those that there are; reason tells for one.
template <typename Reason>
std::string WhyNoWriter(const Scene& scene, const ReverseShell& classifier, unsigned long pipe, Reason reason) {
    const std::vector<const ProcInfo*> writers = Writers(scene, classifier, pipe);
    if (writers.empty()) {
        return "no other process that is looked at writes " + PipeText(pipe);
    }
    std::string text;
    for (size_t i = 0; i < writers.size() && i < mostWritersTold; ++i) {
        text += (text.empty() ? "" : "; ") + NameOf(scene, writers[i]->pid) + " writes " + PipeText(pipe) + ", but " +
                reason(*writers[i]);
    }
    return writers.size() > mostWritersTold ? text + "; and more" : text;
}

std::string WhyNoRelay(const Scene& scene, const ProcInfo& writer, unsigned long pipe) {
    unsigned long inode = 0;
    if (!ReadingFromSock(writer.pid, inode)) {
        return "does not wait for input from an internet socket: " + WaitText(writer.pid);
    }
    if (!HoldsAt(writer.pid, 0, inode)) {
        return "reads " + SocketText(scene, inode) + " on another descriptor than 0";
    }
    if (!HoldsAt(writer.pid, 1, pipe)) {
        return "writes the pipe on another descriptor than 1";
    }
    return "its " + SocketText(scene, inode) + " " + WhyNotAbnormal(inode);
}

bool IsDescendant(const Scene& scene, int pid) {
    std::set<int> passed;
    for (auto process = scene.processes.find(pid); process != scene.processes.end() && passed.insert(pid).second;
         process = scene.processes.find(pid)) {
        pid = process->second.ppid;
        if (pid == scene.pid) {
            return true;
        }
    }
    return false;
}

std::string WhyNoFeeder(const Scene& scene, const ProcInfo& writer) {
    return IsDescendant(scene, writer.pid) ? "has a connection of its own" : "is no descendant of the process";
}

bool CheckReadsPipe(const Scene& scene, unsigned long& pipe, Judgement& judgement) {
    const bool reads = ReadingFromPipe(scene.pid, pipe);
    return judgement.Check(reads, "it waits for input from " + PipeText(pipe),
                           "it does not wait for input from a pipe: " + WaitText(scene.pid));
}

void CheckNoCommand(const Scene& scene, Judgement& judgement) {
    const std::vector<std::string> words = TavUtils::StringProcess::StrSplit(scene.own.cmdline, " ", false);
    judgement.Check(words.size() < 2 || !IsExecTmpCommand(words[1]), "it was not started with -c or -x",
                    "it was started with " + (words.size() < 2 ? "" : words[1]) +
                        " and a command, which is a program's own business");
}

void AddLastTests(const Scene& scene, const SocketInfo& sock, Finder finder, Judgement& judgement) {
    if (sock.inode != 0) {
        NoteSocketAge(scene.pid, youngestSocketSeconds, judgement);
    }
    AddAlarmTests(scene.own, scene.parent, sock, finder, judgement);
}

}  // namespace

std::vector<int> PipeSharers(const Scene& scene, size_t most) {
    std::set<ObjectId> pipes;
    for (const HeldDescriptor& descriptor : scene.processes.at(scene.pid).descriptors) {
        if (descriptor.kind == DescriptorKind::pipe) {
            pipes.insert(descriptor.object);
        }
    }
    std::vector<int> sharers;
    for (const auto& [pid, process] : scene.processes) {
        for (const HeldDescriptor& descriptor : process.descriptors) {
            if (pid != scene.pid && sharers.size() < most && pipes.contains(descriptor.object)) {
                sharers.push_back(pid);
                break;
            }
        }
    }
    return sharers;
}

bool ReadsPipe(const Scene& scene) {
    return ReadingFromPipe(scene.pid);
}

bool IsFedByRelay(const Scene& scene, ReverseShell& classifier) {
    unsigned long pipe = 0;
    SocketInfo sock;
    return ReadingFromPipe(scene.pid, pipe) && classifier.FindSockByPipe(scene.pid, pipe, sock) != 0;
}

void AddCommonTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement) {
    judgement.Check(classifier.IsBashProcess(scene.pid), "its program is a shell of this host: " + scene.own.path,
                    "its program is no shell of this host, nor a copy of one: " + scene.own.path);
    judgement.Check(scene.parent.pid != 0, "it has a parent that is looked at: " + NameOf(scene, scene.own.ppid),
                    "its parent (" + std::to_string(scene.own.ppid) + ") is not looked at");
}

void AddSocketWaitTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement) {
    unsigned long inode = 0;
    const bool waits = ReadingFromSock(scene.pid, inode) || SelectFromSock(scene.pid, inode);
    SocketInfo sock;
    if (judgement.Check(waits, "it waits for input from " + SocketText(scene, inode),
                        "it does not wait for input from an internet socket: " + WaitText(scene.pid)) &&
        CheckAbnormal(scene, inode, sock, classifier.sockTableRefreshed, judgement)) {
        AddLastTests(scene, sock, Finder::byPid, judgement);
    }
}

void AddRelayPipeTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement) {
    unsigned long pipe = 0;
    if (!CheckReadsPipe(scene, pipe, judgement)) {
        return;
    }
    SocketInfo sock;
    const bool found = classifier.FindSockByPipe(scene.pid, pipe, sock) != 0;
    if (!judgement.Check(found,
                         "a relay reads " + SocketText(scene, sock) + " on its descriptor 0 and writes " +
                             PipeText(pipe) + " on its descriptor 1",
                         found ? "" : WhyNoWriter(scene, classifier, pipe, [&](const ProcInfo& writer) {
                             return WhyNoRelay(scene, writer, pipe);
                         }))) {
        return;
    }
    if (sock.type == rawTable) {
        judgement.Check(false, "", "the relay's socket is a raw one");
    }
    CheckNoCommand(scene, judgement);
    AddLastTests(scene, sock, Finder::withRecord, judgement);
}

void AddDescendantPipeTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement) {
    unsigned long pipe = 0;
    if (!CheckReadsPipe(scene, pipe, judgement)) {
        return;
    }
    SocketInfo sock;
    if (classifier.FindSockByPipe(scene.pid, pipe, sock) != 0) {
        judgement.Check(false, "", "a relay feeds the pipe already");
        return;
    }
    const bool found = classifier.FindSockByPipeCurl(scene.pid, pipe, sock) != 0;
    if (!judgement.Check(found, "a descendant of it, without a connection of its own, writes " + PipeText(pipe),
                         found ? "" : WhyNoWriter(scene, classifier, pipe, [&](const ProcInfo& writer) {
                             return WhyNoFeeder(scene, writer);
                         }))) {
        return;
    }
    CheckNoCommand(scene, judgement);
    AddLastTests(scene, sock, Finder::withRecord, judgement);
}

void AddUnixStreamTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement) {
    unsigned long inode = 0;
    if (!judgement.Check(ReadingFromUnixSock(scene.pid, inode), "it waits for input from a Unix stream",
                         "it does not wait for input from a Unix stream: " + WaitText(scene.pid))) {
        return;
    }
    SocketInfo sock;
    const bool abnormal = classifier.GetProcessSock(scene.parent, sock) != 0;
    const std::string parent = "its parent " + NameOf(scene, scene.own.ppid);
    if (!judgement.Check(abnormal && sock.type == rawTable, parent + " holds a raw one, " + SocketText(scene, sock),
                         parent + (abnormal ? " holds first " + SocketText(scene, sock) + ", which is no raw one"
                                            : " holds no raw socket"))) {
        return;
    }
    CheckNoCommand(scene, judgement);
    AddLastTests(scene, sock, Finder::withRecord, judgement);
}

void AddParentTerminalTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement) {
    const std::string parent = "its parent " + NameOf(scene, scene.own.ppid);
    judgement.Check(!IsSshdShell(scene.own.ppid), parent + " is not the ssh daemon",
                    parent + " is the ssh daemon, or does not show its program");
    judgement.Check(scene.own.hasPts, "it has a pseudo-terminal open", "it has no pseudo-terminal open");
    if (!judgement.Check(scene.parent.hasPtmx, parent + " has the master side of a pseudo-terminal open",
                         parent + " has no master side of a pseudo-terminal open")) {
        return;
    }
    SocketInfo sock;
    if (judgement.Check(classifier.GetProcessSock(scene.parent, sock) != 0,
                        parent + " has a connection that is worth a look: " + SocketText(scene, sock),
                        parent + " has no connection that is worth a look")) {
        AddLastTests(scene, sock, Finder::byPid, judgement);
    }
}

}  // namespace Host
