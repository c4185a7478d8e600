// Reception of datagrams: from the socket file through the listener and the check of the envelope into the queue.

#include <unistd.h>

#include <string>

#include "support/Door.h"
#include "support/Input.h"

namespace {

/// More than fits into the buffer that the receiver keeps, so it takes one for the message alone.
constexpr size_t kLargeDatagram = size_t{70} * 1024;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::quietLog(5);
    return 0;
}

/// The input is a row of datagrams, each behind its length in two bytes. The highest bit of a length makes it long.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    fuzz::Door door;
    for (size_t i = 0; i < fuzz::Door::kMaxMessages && !input.empty(); ++i) {
        const auto length = input.number<uint16_t>();
        std::string message(input.bytes(length & 0x7FFF));
        if ((length & 0x8000) != 0 && i == 0) {
            message.resize(kLargeDatagram);
        }
        if (door.send(message)) {
            door.expect(message);
        }
    }
    door.receive();
    return 0;
}
