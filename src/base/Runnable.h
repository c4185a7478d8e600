#pragma once

namespace zv_loc_fw {

/// What a ThreadImpl runs.
class Runnable {
public:
    virtual ~Runnable() = default;
    /// The thread's body; the thread ends when it returns. The result is not used.
    virtual int run() = 0;
};

}  // namespace zv_loc_fw
