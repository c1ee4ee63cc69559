#include "inspect/proc_directory.h"

#include "frame/file_handle.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/run_state.h"

static constexpr char logSource[] = "detect_shell";

static constexpr int lastCountedEntry = 10000;
static constexpr int entriesPerPause = 20;
static constexpr unsigned int entryPauseMicroseconds = 5000;
static constexpr unsigned int entriesPauseMicroseconds = 1000;

int ScanDir(const char* dir, DirEntryCallback callback, std::vector<std::string>& out, bool limit) {
    if (dir == nullptr) {
        return -1;
    }
    const DirectoryStream directory(opendir(dir));
    if (directory == nullptr) {
        return -1;
    }
    int count = 0;
    while (const dirent* entry = readdir(directory.get())) {
        if (IsDotEntry(*entry)) {
            continue;
        }
        if (!CheckDirNum(count, dir, limit)) {
            break;
        }
        Pause(entryPauseMicroseconds);
        if (!DirEntryCheck(entry, dir, callback, out)) {
            break;
        }
        if (count % entriesPerPause == 0) {
            Pause(entriesPauseMicroseconds);
        }
    }
    return 0;
}

bool CheckDirNum(int& count, const char* dir, bool limit) {
    if (!limit) {
        return true;
    }
    const int before = count++;
    if (before > lastCountedEntry) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "Directory files exceed.[maxFileNum=%d dir_path=%s]", lastCountedEntry,
                   dir);
        return false;
    }
    return true;
}

bool DirEntryCheck(const dirent* entry, const char* dir, DirEntryCallback callback, std::vector<std::string>& out) {
    return !NeedStop() && callback(dir, entry->d_name, out) == 0;
}

int CollectDirEntry(const char* dir, const char* name, std::vector<std::string>& out) {
    if (dir == nullptr || name == nullptr) {
        return -1;
    }
    out.emplace_back(name);
    return 0;
}
