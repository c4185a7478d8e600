#pragma once

#include <cstddef>
#include <cstdint>

namespace zv_loc_fw {

class InPostcard;
class MqMsgWrapper;

/// What a client's request card says, as far as a transfer needs it. Texts and body point into the card.
struct TransferRequest {
    InPostcard* card = nullptr;
    const char* from = nullptr;
    const char* to = nullptr;
    const char* req = nullptr;
    const char* url = nullptr;
    int32_t txId = -1;
    bool isPost = false;
    const void* postData = nullptr;
    size_t postSize = 0;
};

/// Reads everything but the body, and logs it under the tag.
/// @return 0; 3 no job; 4 no card; 5 no "FROM"; 6 no "TO", or a "REQ" that is neither GET nor POST; 7 no "REQ"; 8 no
///         "TX-ID"; 9 no "URL"; 10 an empty one
[[nodiscard]] int readTransferRequest(const char* tag, MqMsgWrapper* job, TransferRequest* request);

/// Reads the body of a POST. @return 0; 50 not readable; 51 null; 52 empty
[[nodiscard]] int readPostBody(TransferRequest* request);

}  // namespace zv_loc_fw
