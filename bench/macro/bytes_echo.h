#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "macro/macro.h"

namespace bench {

inline constexpr int kEchoPatienceMs = 20'000;

/// One end of whatever carries bytes between two processes.
class BytesEnd {
public:
    virtual ~BytesEnd() = default;
    virtual bool send(const char* data, std::size_t size) = 0;
    /// @return false when nothing came in kEchoPatienceMs
    virtual bool receive(char* data, std::size_t size) = 0;
};

/// @param path of the server's socket file
using MakeEnd = std::function<std::unique_ptr<BytesEnd>(const std::string& path, bool server)>;

/// A row of both message tables: 200 bytes to an echo in another process, or there alone.
ExchangeRow bytesRow(const std::string& subject, MakeEnd make);

}  // namespace bench
