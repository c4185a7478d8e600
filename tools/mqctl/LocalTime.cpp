#include "LocalTime.h"

#include "platform/posutil/pos_log.h"

namespace mqctl {

std::string localTime() {
    char text[32] = "";
    get_timestamp(text, sizeof(text));
    return text;
}

}  // namespace mqctl
