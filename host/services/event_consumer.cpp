#include "agent/events.h"
#include "host/services/event_queue.h"

EventConsumer& EventConsumer::Instance() {
    static EventConsumer consumer;
    return consumer;
}

void EventConsumer::PushMinuteLimitEvent(const std::string& json) {
    Host::EventQueue::Instance().Push(json);
}
