#include "host/watch/change_meaning.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>
#include <string>

namespace {

using namespace Host;

FileState File(int64_t size, unsigned int mode = 0755, unsigned long links = 1) {
    FileState state;
    state.mode = S_IFREG | mode;
    state.size = size;
    state.links = links;
    return state;
}

FileState Directory(unsigned long links = 2) {
    FileState state;
    state.mode = S_IFDIR | 0755;
    state.size = 4096;
    state.links = links;
    return state;
}

// The same bytes, written at another time or with another time of the last change.
FileState Written(FileState state) {
    ++state.modifiedNs;
    ++state.changedNs;
    return state;
}
FileState Changed(FileState state) {
    ++state.changedNs;
    return state;
}

constexpr std::nullopt_t nothing = std::nullopt;
constexpr const char* chmodDetail = "attribute oaccess=33261 access=33216";

struct Row {
    std::optional<FileState> before;
    std::optional<FileState> after;
    Cause cause;
    std::optional<FileOperation> operation;
    bool isArrival = false;
    const char* attributes = "";
    bool linksWait = false;
};

void ExpectMeanings(const std::initializer_list<std::pair<const char*, Row>>& rows) {
    for (const auto& [name, row] : rows) {
        const Meaning meaning = MeaningOf(row.before, row.after, row.cause);
        EXPECT_EQ(meaning.operation, row.operation) << name;
        EXPECT_EQ(meaning.isArrival, row.isArrival) << name;
        EXPECT_EQ(meaning.attributes, row.attributes) << name;
        EXPECT_EQ(meaning.linksWait, row.linksWait) << name;
    }
}

TEST(MeaningOf, APathThatLeadsElsewhere) {
    ExpectMeanings({
        // The change of the name is reported on its own.
        {"name removed", {File(1), nothing, Cause::nameReported, nothing}},
        {"name made", {nothing, File(1), Cause::nameReported, nothing}},
        {"name replaced", {File(1), File(1), Cause::nameReported, nothing}},
        {"still nothing", {nothing, nothing, Cause::pathChanged, nothing}},
        {"still nothing after a move", {nothing, nothing, Cause::movedHere, nothing}},

        {"gone", {File(1), nothing, Cause::pathChanged, FILE_DELETED}},
        {"directory gone", {Directory(), nothing, Cause::pathChanged, FILE_DELETED}},
        {"moved away", {File(1), nothing, Cause::moved, FILE_MOVED_FROM}},
        {"unmounted", {File(1), nothing, Cause::movedHere, FILE_DELETED}},

        {"another file", {File(1), File(1), Cause::pathChanged, FILE_MOVED_TO}},
        {"another file without content", {File(1), File(0), Cause::pathChanged, FILE_MOVED_TO}},
        {"another directory", {Directory(), Directory(), Cause::pathChanged, FILE_MOVED_TO}},
        {"another file by a move", {File(1), File(1), Cause::moved, FILE_MOVED_TO}},
        {"another file by a mount", {File(1), File(1), Cause::movedHere, FILE_MOVED_TO}},

        {"made with content", {nothing, File(1), Cause::pathChanged, FILE_MODIFIED, true}},
        {"made without content", {nothing, File(0), Cause::pathChanged, nothing}},
        {"directory made", {nothing, Directory(), Cause::pathChanged, nothing}},
        {"moved here", {nothing, File(0), Cause::movedHere, FILE_MOVED_TO, true}},
        {"directory moved here", {nothing, Directory(), Cause::movedHere, FILE_MOVED_TO, true}},
        {"a directory of the path has come", {nothing, File(0), Cause::moved, FILE_MOVED_TO, true}},

        {"file in a directory's place", {Directory(), File(1), Cause::pathChanged, FILE_MODIFIED, true}},
        {"empty file in a directory's place", {Directory(), File(0), Cause::pathChanged, nothing}},
        {"directory in a file's place", {File(1), Directory(), Cause::pathChanged, nothing}},
        {"directory mounted over a file", {File(1), Directory(), Cause::movedHere, FILE_MOVED_TO, true}},
    });
}

TEST(MeaningOf, AnEntryThatIsListedAgain) {
    ExpectMeanings({
        {"gone", {File(1), nothing, Cause::relisted, FILE_DELETED}},
        {"new", {nothing, File(1), Cause::relisted, FILE_MODIFIED, true}},
        {"new without content", {nothing, File(0), Cause::relisted, nothing}},
        {"new directory", {nothing, Directory(), Cause::relisted, nothing}},
        {"another file", {File(1), File(1), Cause::relisted, FILE_MOVED_TO}},
        {"directory in a file's place", {File(1), Directory(), Cause::relisted, FILE_MOVED_TO}},
        {"file in a directory's place", {Directory(), File(0), Cause::relisted, FILE_MOVED_TO}},
    });
}

TEST(MeaningOf, TheContentOfAFile) {
    ExpectMeanings({
        {"nothing", {File(1), File(1), Cause::written, nothing}},
        {"written, which is an event of its own", {File(1), Written(File(2)), Cause::written, nothing}},
        {"closed after no write", {File(1), File(1), Cause::closed, nothing}},
        {"closed with another size", {File(1), File(2), Cause::closed, FILE_MODIFIED}},
        {"closed after a write to a mapping", {File(1), Written(File(1)), Cause::closed, FILE_MODIFIED}},
        {"closed after a change of something else", {File(1), Changed(File(1)), Cause::closed, nothing}},
        {"directory closed", {Directory(), Written(Directory()), Cause::closed, nothing}},
        {"written, when links are due", {File(1), Written(File(2)), Cause::linksDue, nothing}},

        {"nothing, events lost", {File(1), File(1), Cause::eventsLost, nothing}},
        {"other size, events lost", {File(1), File(2), Cause::eventsLost, FILE_MODIFIED}},
        {"written, events lost", {File(1), Written(File(1)), Cause::eventsLost, FILE_MODIFIED}},
        {"time of writing set back, events lost", {File(1), Changed(File(1)), Cause::eventsLost, FILE_MODIFIED}},
        {"directory, events lost", {Directory(), Written(Directory()), Cause::eventsLost, nothing}},
    });
}

TEST(MeaningOf, TheAttributesOfAFile) {
    const FileState other = Changed(File(1, 0700));
    const FileState fewer = File(1, 0755, 1);
    const FileState more = File(1, 0755, 2);
    ExpectMeanings({
        {"mode", {File(1), other, Cause::written, nothing, false, chmodDetail}},
        {"mode at the close", {File(1), other, Cause::closed, nothing, false, chmodDetail}},
        {"mode, when links are due", {File(1), other, Cause::linksDue, nothing, false, chmodDetail}},
        {"mode explains the change, events lost", {File(1), other, Cause::eventsLost, nothing, false, chmodDetail}},
        {"mode and size", {File(2), other, Cause::closed, FILE_MODIFIED, false, chmodDetail}},
        {"mode of a file without a name", {File(1), File(1, 0700, 0), Cause::written, nothing}},
        {"write to a file without a name", {File(1), File(2, 0755, 0), Cause::closed, FILE_MODIFIED}},

        {"more links", {fewer, more, Cause::written, nothing, false, "attribute olink=1 link=2"}},
        {"fewer links", {more, fewer, Cause::written, nothing, false, "", true}},
        {"fewer links and mode", {more, other, Cause::written, nothing, false, chmodDetail, true}},
        {"fewer links at the close", {more, fewer, Cause::closed, nothing, false, "", true}},
        {"fewer links, due", {more, fewer, Cause::linksDue, nothing, false, "attribute olink=2 link=1"}},
        {"fewer links, events lost", {more, fewer, Cause::eventsLost, nothing, false, "attribute olink=2 link=1"}},
        {"fewer directories in a directory", {Directory(3), Directory(2), Cause::written, nothing}},
    });
}

}  // namespace
