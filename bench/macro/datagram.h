#pragma once

#include <sys/un.h>

#include <cstddef>
#include <string>

#include "macro/bytes_echo.h"

namespace bench {

/// Each end is bound, and addresses the other by its path on every send, as participants do.
class DatagramEnd : public BytesEnd {
public:
    /// @param checked looks whether the other's file is there before a send, and at a message's length before a
    ///        receive, as participants do
    DatagramEnd(const std::string& path, bool server, bool checked);
    ~DatagramEnd() override;
    DatagramEnd(const DatagramEnd&) = delete;
    DatagramEnd& operator=(const DatagramEnd&) = delete;

    bool send(const char* data, std::size_t size) override;
    bool receive(char* data, std::size_t size) override { return take(data, size) > 0; }
    /// @return the message's size; 0 when nothing came in kEchoPatienceMs
    std::size_t take(char* data, std::size_t size);

private:
    int mSocket;
    sockaddr_un mOwn;
    sockaddr_un mOther;
    bool mChecked;
};

}  // namespace bench
