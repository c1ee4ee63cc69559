#include "classifier/tmp_command_list.h"

#include <algorithm>
#include <mutex>

void RecordTmpCommand(int ppid, const TPROC_INFO& command) {
    const std::lock_guard guard(tmpProcLock);
    TmpProcListInfo& parent = tmpProcMap[ppid];
    if (parent.judged) {
        return;
    }
    const auto known = std::find_if(parent.procList.begin(), parent.procList.end(),
                                    [&command](const TPROC_INFO& each) { return each.pid == command.pid; });
    if (known != parent.procList.end()) {
        *known = command;
    } else {
        parent.procList.push_back(command);
    }
}

TmpProcMap CopyTmpProcMap() {
    const std::lock_guard guard(tmpProcLock);
    return tmpProcMap;
}

void WriteBackTmpProcs(int ppid, const TmpProcListInfo& info) {
    const std::lock_guard guard(tmpProcLock);
    const auto entry = tmpProcMap.find(ppid);
    if (entry != tmpProcMap.end()) {
        entry->second = info;
    }
}

void EraseTmpProcs(const std::set<int>& ppids) {
    const std::lock_guard guard(tmpProcLock);
    for (const int ppid : ppids) {
        tmpProcMap.erase(ppid);
    }
}

void ClearTmpProcs() {
    const std::lock_guard guard(tmpProcLock);
    tmpProcMap.clear();
}
