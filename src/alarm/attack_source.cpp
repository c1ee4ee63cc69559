#include "alarm/attack_source.h"

#include "agent/sha256.h"
#include "agent/strings.h"
#include "alarm/command_attribution.h"
#include "alarm/command_paths.h"
#include "frame/log.h"

static constexpr char logSource[] = "detect_shell";

static bool IsOneWord(const std::string& cmdline) {
    return TavUtils::StringProcess::StrSplit(cmdline, " ", false).size() < 2;
}

static void SetSource(RshellAlarmInfo& record, const std::string& path, const char* hash) {
    record.sourcePath = path;
    record.hash = hash;
}

void FindAttackSource(RshellAlarmInfo& record) {
    char digest[65] = {};
    if (!TavUtils::Sha256::GetFileSha256(record.path, digest, nullptr)) {
        return;
    }
    if (!IsCommonCommand(record.path.c_str())) {
        SetSource(record, record.path, digest);
        return;
    }
    if (record.ppid == 1) {
        return;
    }
    if (!IsCommonCommand(record.parentPath.c_str())) {
        SetSource(record, record.parentPath, digest);
        return;
    }
    if (FindScriptArgument(record, record.ppid) || FindScriptArgument(record, record.pid)) {
        record.hash = digest;
        return;
    }
    if (IsOneWord(record.parentCmdline)) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "cmdline is not enough to get hash");
        record.hash = digest;
        return;
    }
    TavUtils::Sha256::GetMemSha256(record.parentCmdline.data(), static_cast<unsigned int>(record.parentCmdline.size()),
                                   digest);
    SetSource(record, record.parentCmdline, digest);
}
