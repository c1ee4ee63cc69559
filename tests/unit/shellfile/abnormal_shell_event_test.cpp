#include "shellfile/abnormal_shell_event.h"

#include "shellfile_fixture.h"

namespace {

using enum TavUtils::Monitor::FileOperation;

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;

class AbnormalShellEvent : public ShellFileTest {
protected:
    static SHELL_EVENT Event(int operation) {
        SHELL_EVENT event;
        event.fileOperationType = operation;
        event.path = "/bin/sh";
        event.relatedPath = "/bin/other";
        event.command = "other -i";
        event.type = "owner";
        event.from = "root";
        event.to = "nobody";
        return event;
    }
};

TEST_F(AbnormalShellEvent, IsOneDocumentOfThreeKeys) {
    AddShellEvent(Event(FILE_MODIFIED));
    ASSERT_EQ(Fake::TheAgent().events.size(), 1U);
    const EventJson document = EventJson::Parse(Fake::TheAgent().events[0]);
    EXPECT_THAT(document.Keys(), ElementsAre("eventType", "eventTime", "eventContent"));
    EXPECT_EQ(document["eventType"], "abnormal-shell");
    EXPECT_EQ(document["eventTime"], Fake::TheAgent().utc);
}

TEST_F(AbnormalShellEvent, HasOnlyTheKeysOfItsOperation) {
    const struct {
        int operation;
        const char* word;
        std::vector<std::string> keys;
    } cases[] = {
        {1, "attribute", {"path", "operationType", "attribute"}},
        {2, "modify", {"path", "operationType"}},
        {3, "delete", {"path", "operationType"}},
        {4, "move", {"path", "operationType", "relatedPath"}},
        {5, "move", {"path", "operationType", "relatedPath"}},
        {6, "move", {"path", "operationType", "relatedPath"}},
        {7, "copy", {"path", "operationType", "command", "relatedPath"}},
    };
    for (const auto& row : cases) {
        Fake::TheAgent().events.clear();
        AddShellEvent(Event(row.operation));
        const EventJson content = Contents().at(0);
        EXPECT_EQ(content.Keys(), row.keys) << row.operation;
        EXPECT_EQ(content["path"], "/bin/sh");
        EXPECT_EQ(content["operationType"], row.word);
    }
}

TEST_F(AbnormalShellEvent, OmitsTheNameOfAnUnknownOperation) {
    for (const int operation : {0, 8, -1}) {
        Fake::TheAgent().events.clear();
        AddShellEvent(Event(operation));
        EXPECT_THAT(Contents().at(0).Keys(), ElementsAre("path")) << operation;
    }
    AddShellEvent({});
    EXPECT_THAT(Contents().at(1).Keys(), ElementsAre("path"));
}

TEST_F(AbnormalShellEvent, HasOneAttributeInAnArray) {
    AddShellEvent(Event(FILE_ATTRIBUTE));
    const EventJson attribute = Contents().at(0)["attribute"];
    ASSERT_EQ(attribute.Size(), 1U);
    EXPECT_THAT(attribute[0].Keys(), ElementsAre("type", "from", "to"));
    EXPECT_EQ(attribute[0]["type"], "owner");
    EXPECT_EQ(attribute[0]["from"], "root");
    EXPECT_EQ(attribute[0]["to"], "nobody");
}

TEST_F(AbnormalShellEvent, KeepsAnEmptyRelatedPath) {
    SHELL_EVENT event = Event(FILE_MOVED);
    event.relatedPath.clear();
    AddShellEvent(event);
    EXPECT_EQ(Contents().at(0)["relatedPath"], "");
}

TEST_F(AbnormalShellEvent, IsOneValidLineForAnyTexts) {
    SHELL_EVENT event = Event(SHELL_COPY);
    event.relatedPath = "/tmp/\"\n\\\x01\xff\xc3";
    event.command = "a\tb\r\nc";
    AddShellEvent(event);
    EXPECT_EQ(Fake::TheAgent().events.at(0).find('\n'), std::string::npos);
    EXPECT_EQ(Contents().at(0)["command"], "a\tb\r\nc");
}

TEST_F(AbnormalShellEvent, IsPushedBeforeAPauseOfTenMilliseconds) {
    size_t eventsAtPause = 0;
    TimeRecorder::AtEachPause([&](size_t) { eventsAtPause = Fake::TheAgent().events.size(); });
    AddShellEvent(Event(FILE_DELETED));
    EXPECT_EQ(eventsAtPause, 1U);
    EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>{milliseconds(10)});
}

}  // namespace
