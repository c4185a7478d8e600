#include "transfer/TransferSettings.h"

namespace zv_loc_fw {

TransferSettings& transferSettings() {
    static constinit TransferSettings settings;
    return settings;
}

}  // namespace zv_loc_fw
