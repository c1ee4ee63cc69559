#include "agent/events.h"
#include "host/events/event_queue.h"

EventConsumer& EventConsumer::Instance() {
    static EventConsumer consumer;
    return consumer;
}

void EventConsumer::PushMinuteLimitEvent(const std::string& json) {
    Host::EventQueue::Instance().Push(json);
}
