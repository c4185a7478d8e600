// The tables of the small pieces, in the order of the report, each with what we want to reach beside the others.

#include "harness/harness.h"

namespace bench {

namespace {

const Register kTables[] = {
    Register(Table{"codec/request-encode",
                   "A POST request of ten fields: made, filled, finished, its bytes there, thrown away.",
                   {{"protobuf", 0.75}, {"libbson", 0.5}},
                   ""}),
    Register(
        Table{"codec/request-read-all",
              "The same request from its bytes: a reader made, all ten fields read by name, the reader thrown away.",
              {{"msgpack", 0.75}},
              ""}),
    Register(Table{"codec/request-read-three",
                   "As a dispatcher does it: a reader made, FROM, REQ and TX-ID read.",
                   {{"msgpack", 0.2}},
                   ""}),
    Register(Table{"codec/result-encode", "The card of a reply with a body of 200 bytes.", {{"protobuf", 1.0}}, ""}),
    Register(
        Table{"codec/result-decode", "The same from its bytes to the body's first byte.", {{"msgpack", 0.27}}, ""}),
    Register(Table{"codec/result-decode-4M", "A body of 4 MiB, from the bytes to the body's first byte.", {}, ""}),
    Register(Table{"codec/result-encode-4M",
                   "The card of a reply with a body of 4 MiB, default allocator.",
                   {{"memcpy", 4.5}},
                   ""}),
    Register(
        Table{"log/filtered", "A log call with one argument that does not pass the threshold.", {{"spdlog", 0.3}}, ""}),
    Register(Table{"config/load", "A file of 200 lines read, its pairs kept, all freed.", {{"GKeyFile", 0.75}}, ""}),
    Register(
        Table{"queue/depth-1", "One item pushed and popped, nobody waiting.", {{"std::mutex + std::deque", 1.2}}, ""}),
    Register(Table{"growth/queue", "One item pushed and popped while the queue holds so many.", {}, "node"}),
    Register(Table{"growth/card-encode", "A card of so many integers: made, filled, finished.", {}, "field"}),
    Register(
        Table{"growth/card-read-last", "A reader made over such a card, its last field read by name.", {}, "field"}),
    Register(Table{"growth/card-read-all", "A reader made over such a card, every field read by name.", {}, "field"}),
};

}  // namespace

}  // namespace bench
