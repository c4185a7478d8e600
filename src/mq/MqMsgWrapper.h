#pragma once

#include <memory>
#include <utility>

#include "base/Timestamp.h"
#include "postcard/InPostcard.h"

namespace zv_loc_fw {

/// A message as it waits in a controller's incoming queue: its reader, and when it was received or handed in. Who pops
/// it, owns it. One thread at a time.
class MqMsgWrapper {
public:
    /// @param card owned from now on
    explicit MqMsgWrapper(InPostcard* card) : mCard(card) {}
    /// With a given time of arrival.
    MqMsgWrapper(InPostcard* card, const Timestamp& time) : mCard(card), mTime(time) {}
    virtual ~MqMsgWrapper() = default;
    MqMsgWrapper(const MqMsgWrapper&) = delete;
    MqMsgWrapper& operator=(const MqMsgWrapper&) = delete;

    /// Null once it was taken out.
    [[nodiscard]] InPostcard* card() const { return mCard.get(); }
    [[nodiscard]] const Timestamp& time() const { return mTime; }
    /// Hands the reader to the caller.
    [[nodiscard]] std::unique_ptr<InPostcard> takeCard() { return std::move(mCard); }

private:
    std::unique_ptr<InPostcard> mCard;
    Timestamp mTime;
};

}  // namespace zv_loc_fw
