// The tables, in the order of the report, each with what we want to reach.

#include "macro/macro.h"

namespace bench {

namespace {

const RegisterExchange kTables[] = {
    RegisterExchange(ExchangeTable{"message/round-trip",
                                   "A message of 200 bytes to another process and one back, from building to parsing.",
                                   "datagram by path", 2000, "p50 <= 1.60 of the limit"}),
    RegisterExchange(ExchangeTable{
        "message/one-way", "Messages of 200 bytes in one direction, a message: 1000 in a row, the last one confirmed.",
        "datagram by path", 20, "p50 <= 1.33 of the limit (0.75 of its messages a second)"}),
    RegisterExchange(ExchangeTable{"reply/refused",
                                   "A request without a time-out: its controller answers at once, no transfer is made.",
                                   "datagram by path", 2000, "p50 <= 2.60 of the limit"}),
    RegisterExchange(ExchangeTable{"get/http", "GET of 200 bytes over a kept connection, HTTP.", "libcurl in process",
                                   2000, "p50 <= 2.60 and p99 <= 3.30 of the limit, processor <= 1.85 of its p50"}),
    RegisterExchange(ExchangeTable{"get/https", "GET of 200 bytes over a kept connection, HTTPS.", "libcurl in process",
                                   2000, "p50 <= 2.35 of the limit"}),
    RegisterExchange(
        ExchangeTable{"connection/https",
                      "GET of 200 bytes over a new HTTPS connection, beside a bundle of all authorities of "
                      "this system.",
                      "libcurl in process", 50, "p50 <= 1.50 of the limit"}),
    RegisterExchange(ExchangeTable{"large/http", "GET of 64 MiB (quick: 8) into the client's memory, HTTP.",
                                   "libcurl in process", 3, "p50 <= 1.15 of the limit"}),
    RegisterExchange(ExchangeTable{"large/https", "GET of 64 MiB (quick: 8) into the client's memory, HTTPS.",
                                   "libcurl in process", 3, "p50 <= 1.25 of the limit"}),
};

}  // namespace

}  // namespace bench
