#include "mq/LocalTimerList.h"

namespace zv_loc_fw {

namespace {

bool sameData(const TimerDataInterface* stored, const TimerDataInterface* wanted) {
    if (stored == nullptr || wanted == nullptr) {
        return stored == wanted;
    }
    return *stored == *wanted;
}

}  // namespace

void LocalTimerList::add(const Timestamp& deadline, MqClientFunctionalModuleBase* module,
                         const TimerDataInterface* data) {
    mTimers.push({deadline, module, data});
}

void LocalTimerList::remove(const MqClientFunctionalModuleBase* module, const TimerDataInterface* data) {
    auto* node = mTimers.head();
    while (node != nullptr) {
        const bool matches = node->value.module == module && sameData(node->value.data, data);
        node = matches ? mTimers.erase(node) : node->next;
    }
}

std::optional<Timestamp> LocalTimerList::fireExpired() {
    std::optional<Timestamp> nearest;
    auto* node = mTimers.head();
    while (node != nullptr) {
        if (Timestamp() >= node->value.deadline) {
            const TimerCallbackEntry expired = node->value;
            mTimers.erase(node);
            expired.module->timerCallback(expired.data);
            nearest.reset();
            node = mTimers.head();
            continue;
        }
        if (!nearest || !(node->value.deadline >= *nearest)) {
            nearest = node->value.deadline;
        }
        node = node->next;
    }
    return nearest;
}

}  // namespace zv_loc_fw
