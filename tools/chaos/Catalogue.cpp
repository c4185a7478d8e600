#include "Catalogue.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace chaos {

using test_support::Card;
using test_support::Field;
using test_support::Type;

/// A request in the making: fields that may still be taken out or changed.
struct Catalogue::Draft {
    Plan plan;
    std::vector<Field> fields;

    void set(const Card& one) {
        drop(one.fields().front().name);
        fields.push_back(one.fields().front());
    }
    void drop(const std::string& name) {
        std::erase_if(fields, [&](const Field& field) { return field.name == name; });
    }
    void serves(int32_t status, const std::string& body) {
        Expectation& expected = plan.request.expected;
        expected.outcomes |= kServed;
        expected.status = status;
        expected.bodySize = body.size();
        expected.bodyHash = hashOf(body);
    }
    void expect(unsigned outcomes) { plan.request.expected.outcomes |= outcomes; }
};

namespace {

std::string alphabet(int size) {
    std::string text(static_cast<size_t>(size), '\0');
    for (size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char>('a' + i % 26);
    }
    return text;
}

/// Mostly small; some at the border between the two forms of messages; a few that need a file.
int bodySize(Dice& dice) {
    const int die = dice.between(1, 100);
    return die <= 80   ? dice.between(1, 3000)
           : die <= 92 ? dice.between(65000, 66000)
           : die <= 98 ? dice.between(66000, 300000)
                       : dice.between(300000, 900000);
}

std::string overTls(const test_support::RawServer& server) {
    return "https" + server.url("/").substr(4);
}

/// How much of a message it takes until its TX-ID can be read.
size_t nameableSize(const std::string& bytes) {
    return bytes.find("TX-ID") + std::string("TX-ID").size() + 1 + sizeof(int32_t);
}

Card blobOf(const std::string& name, const std::string& bytes) {
    return Card().blob(name, bytes);
}

}  // namespace

Catalogue::Draft Catalogue::draft(const std::string& kind, const std::string& from, const std::string& controller,
                                  const std::string& req, const std::string& url, int32_t timeoutSec) const {
    Draft draft;
    Plan& plan = draft.plan;
    plan.txId = mLedger.nextTxId();
    plan.request = {.kind = kind,
                    .controller = controller,
                    .from = from,
                    .replyFrom = controller,
                    .req = req,
                    .timeoutSec = timeoutSec,
                    .expected = {}};
    Card card;
    card.string("FROM", from).string("TO", controller).string("REQ", req).int32("TX-ID", plan.txId);
    draft.fields = card.string("URL", url).int32("TIMEOUT-SEC", timeoutSec).fields();
    return draft;
}

Plan Catalogue::finish(Draft draft) const {
    Card card;
    for (const Field& field : draft.fields) {
        card.add(field.name, field.type, field.value);
    }
    draft.plan.bytes = card.encode();
    return std::move(draft.plan);
}

Catalogue::Draft Catalogue::goodGet(Dice& dice, const std::string& from, const std::string& controller) const {
    const bool tls = dice.percent(30);
    const test_support::HttpServer& server = tls ? mServers.https : mServers.http;
    const std::string host = dice.percent(50) ? "127.0.0.1" : "localhost";
    const std::string scheme = tls ? " https" : " http";
    const auto get = [&](const std::string& kind, const std::string& path) {
        return draft("good get" + kind + scheme, from, controller, "GET", server.url(path, host), kGenerousSec);
    };
    switch (dice.between(1, 6)) {
        case 1: {
            Draft made = get(" hello", "/hello");
            made.serves(200, "hello\n");
            return made;
        }
        case 2: {
            static const std::vector<int> kStatuses = {200, 201, 204, 400, 403, 404, 418, 429, 500, 503};
            const int status = dice.pick(kStatuses);
            Draft made = get(" status", "/status/" + std::to_string(status));
            made.serves(status, status == 204 ? "" : "status " + std::to_string(status) + "\n");
            return made;
        }
        case 3: {
            const int seconds = dice.between(1, 100000);
            Draft made = get(" retry-after", "/retry-after?value=" + std::to_string(seconds));
            made.serves(503, "later\n");
            made.plan.request.expected.retryAfter = seconds;
            return made;
        }
        case 4: {
            // Once over to the other scheme, where there is something to be had.
            const test_support::HttpServer& other = tls ? mServers.http : mServers.https;
            Draft made = get(" moved", "/redirect?code=" + std::to_string(dice.percent(50) ? 302 : 307) +
                                           "&to=" + other.url("/hello"));
            made.serves(200, "hello\n");
            return made;
        }
        default: {
            const int size = bodySize(dice);
            Draft made = get(size > 65000 ? " large" : " small", "/bytes/" + std::to_string(size));
            made.serves(200, alphabet(size));
            return made;
        }
    }
}

Catalogue::Draft Catalogue::goodPost(Dice& dice, const std::string& from, const std::string& controller) const {
    const int size = bodySize(dice);
    const std::string body = dice.bytes(static_cast<size_t>(size));
    // The first reaches the server that wants the device's certificate.
    const bool service = dice.percent(25);
    const bool tls = service || dice.percent(30);
    const std::string url = service ? mServers.service.url("/echo", "posit.localhost")
                                    : (tls ? mServers.https : mServers.http).url("/echo");
    Draft made = draft(std::string("good post") + (service ? " certified"
                                                   : tls   ? " https"
                                                           : " http"),
                       from, controller, "POST", url, kGenerousSec);
    made.set(blobOf("POST-DATA", body));
    made.set(Card().string("CONTENT-TYPE", "application/octet-stream"));
    if (dice.percent(20)) {
        made.set(Card().string("PROTOCOL-VERSION", "7"));
    }
    made.serves(200, body);
    return made;
}

Catalogue::Draft Catalogue::goodRaw(Dice& dice, const std::string& from, const std::string& controller) const {
    static const std::vector<std::string> kPaths = {"/drip", "/short-length", "/chunked", "/until-close"};
    const std::string& path = dice.pick(kPaths);
    Draft made = draft("good raw " + path, from, controller, "GET", mServers.raw.url(path), kGenerousSec);
    made.serves(200, Servers::kept(path));
    return made;
}

Plan Catalogue::good(Dice& dice, const std::string& from, const std::string& controller) const {
    const int die = dice.between(1, 100);
    Draft made = die <= 60   ? goodGet(dice, from, controller)
                 : die <= 85 ? goodPost(dice, from, controller)
                             : goodRaw(dice, from, controller);
    if (dice.percent(20)) {
        made.set(Card().boolean("FORCE_NEW_CONNECTION", dice.percent(70)));
    }
    if (dice.percent(5)) {
        made.plan.request.timeoutSec = INT_MAX;
        made.set(Card().int32("TIMEOUT-SEC", INT_MAX));
    }
    if (dice.percent(10)) {
        made.set(Card().card("NOBODY-KNOWS", Card().string("URL", "inner").int32("TX-ID", 3)));
    }
    if (dice.percent(5)) {
        // The reply says that it is from whom the request was to.
        made.plan.request.replyFrom = "somebody else";
        made.set(Card().string("TO", "somebody else"));
    }
    if (dice.percent(30)) {
        dice.shuffle(&made.fields);
    }
    Plan plan = finish(std::move(made));
    plan.inFile = dice.percent(3);
    return plan;
}

Plan Catalogue::ping(const std::string& from, const std::string& controller) const {
    Draft made = draft("good ping", from, controller, "GET", mServers.http.url("/hello"), kGenerousSec);
    made.serves(200, "hello\n");
    return finish(std::move(made));
}

Plan Catalogue::failing(Dice& dice, const std::string& from, const std::string& controller) const {
    static const std::vector<std::string> kPaths = {
        "/reset",          "/reset-head", "/reset-body", "/empty", "/cut-head", "/cut-body", "/endless-line",
        "/garbage-status", "/bad-length", "/bad-chunk",  "/loop",  "/to-file",  "/to-ftp"};
    if (dice.percent(50)) {
        const std::string& path = dice.pick(kPaths);
        Draft made = draft("fails " + path, from, controller, "GET", mServers.raw.url(path), kGenerousSec);
        made.expect(kFailed);
        return finish(std::move(made));
    }
    const std::vector<std::pair<std::string, std::string>> urls = {
        {"refused", mServers.refusedUrl()},
        {"reset at once", mServers.resetting.url("/")},
        {"reset in the handshake", overTls(mServers.resetting)},
        {"answer before the request", mServers.blurting.url("/")},
        {"no handshake", overTls(mServers.blurting)},
        {"certificate expired", mServers.expired.url("/hello", "localhost")},
        {"certificate unknown", mServers.unknown.url("/hello", "localhost")},
        {"certificate's name", mServers.wrongName.url("/hello", "localhost")},
        {"no client certificate", mServers.service.url("/hello", "posit.localhost")},
        {"client certificate refused", mServers.refusingService.url("/echo", "posit.localhost")},
        {"no such name", "http://" + std::string(80, 'x') + ".example/"},
        {"scheme", "file:///etc/hostname"},
        {"no address", "http://[::1/"},
    };
    const auto& [kind, url] = dice.pick(urls);
    const bool post = kind == "client certificate refused" || dice.percent(20);
    Draft made = draft("fails " + kind, from, controller, post ? "POST" : "GET", url, kGenerousSec);
    if (post) {
        // A refusal after the handshake may be overtaken by a long body's reset: any error will do.
        made.set(blobOf("POST-DATA", dice.bytes(static_cast<size_t>(dice.between(1, 2000)))));
    }
    if (post && kind == "no client certificate") {
        made.set(Card().string("URL", mServers.service.url("/echo", "localhost")));  // not the service's name
    }
    made.expect(kFailed);
    return finish(std::move(made));
}

Plan Catalogue::stalling(Dice& dice, const std::string& from, const std::string& controller) const {
    static const std::vector<std::string> kPaths = {"/stall", "/stall-head", "/stall-body", "/drip-slow",
                                                    "/endless-head"};
    const int die = dice.between(1, 7);
    const std::string& path = dice.pick(kPaths);
    const int32_t timeout = dice.between(3, 5);
    Draft made = die == 1 ? draft("stalls in the handshake", from, controller, "GET", overTls(mServers.raw), timeout)
                 : die == 2
                     ? draft("stalls at the name", from, controller, "GET", "http://no-such-host.invalid/", timeout)
                     : draft("stalls " + path, from, controller, "GET", mServers.raw.url(path), timeout);
    made.expect(kTimedOut | kFailed | kQueuedTimedOut | kActiveTimedOut | (mReplies ? kRejected : 0U));
    return finish(std::move(made));
}

Plan Catalogue::tight(Dice& dice, const std::string& from, const std::string& controller) const {
    const int32_t timeout = dice.between(2, 5);
    Draft made =
        draft("tight " + std::to_string(timeout) + " s", from, controller, "GET", mServers.http.url("/hello"), timeout);
    made.serves(200, "hello\n");
    made.expect(kTimedOut | kQueuedTimedOut | kActiveTimedOut | (mReplies ? kRejected : 0U));
    return finish(std::move(made));
}

Plan Catalogue::rejected(Dice& dice, const std::string& from, const std::string& controller) const {
    const std::string url = mServers.http.url("/hello");
    const int32_t timeout = dice.between(2, 3);
    const auto make = [&](const std::string& kind, int code, const std::string& req) {
        Draft made = draft("rejected " + kind, from, controller, req, url, timeout);
        made.plan.request.expected.rejection = code;
        return made;
    };
    Draft made;
    switch (dice.between(1, 11)) {
        case 1:
            made = make("PUT", 6, "PUT");
            break;
        case 2:
            made = make("get", 6, "get");
            break;
        case 3:
            made = make("REQ empty", 6, "");
            break;
        case 4:
            made = make("REGISTER", 6, "REGISTER");
            made.plan.request.replyFrom = "LOCATION-MQ";
            made.set(Card().string("TO", "LOCATION-MQ"));
            break;
        case 5:
            made = make("no URL", 9, "GET");
            made.drop("URL");
            break;
        case 6:
            made = make("URL empty", 10, "GET");
            made.set(Card().string("URL", ""));
            break;
        case 7:
            made = make("POST without body", 50, "POST");
            break;
        case 8:
            made = make("no TO", 6, "GET");
            made.plan.request.expected.nameless = true;
            made.drop("TO");
            break;
        case 9:
            made = make("URL too long", 29, "GET");
            made.set(Card().string("URL", "http://127.0.0.1/" + std::string(8000000, 'u')));
            break;
        case 10:
            // Readers that look for a field which is not there go on behind the end.
            made = make("card announced longer", 31, "GET");
            break;
        default:
            made = make("one second", 27, "GET");
            made.plan.request.timeoutSec = 1;
            made.set(Card().int32("TIMEOUT-SEC", 1));
    }
    // With a reply, only a turn in the very last moment still ends by the deadline.
    made.expect(kQueuedTimedOut | kActiveTimedOut | (mReplies ? kRejected : 0U));
    Plan plan = finish(std::move(made));
    if (plan.request.expected.rejection == 31) {
        plan.bytes[static_cast<size_t>(dice.between(2, 3))] = static_cast<char>(dice.between(1, 127));
    }
    return plan;
}

Plan Catalogue::expired(Dice& dice, const std::string& from, const std::string& controller) const {
    static const std::vector<int32_t> kNone = {0, -1, -5, INT_MIN};
    const int32_t timeout = dice.pick(kNone);
    Draft made =
        draft("expired", from, controller, dice.percent(50) ? "GET" : "PUT", mServers.http.url("/hello"), timeout);
    if (dice.percent(30)) {
        made.drop("TIMEOUT-SEC");
    } else if (dice.percent(20)) {
        made.set(Card().add("TIMEOUT-SEC", Type::Int64, std::string("\x3c\0\0\0\0\0\0\0", 8)));
    }
    made.expect(kQueuedTimedOut);
    if (!dice.percent(20)) {
        return finish(std::move(made));
    }
    // Cut before the time-out, which comes last: it counts as none.
    made.plan.request.kind = "expired: card cut short";
    made.set(Card().int32("TIMEOUT-SEC", kGenerousSec));
    Plan plan = finish(std::move(made));
    plan.bytes.resize(static_cast<size_t>(
        dice.between(static_cast<int>(nameableSize(plan.bytes)), static_cast<int>(plan.bytes.size()) - 2)));
    return plan;
}

Plan Catalogue::silent(Dice& dice, const std::string& from, const std::string& controller) const {
    Draft made = draft("", from, controller, "GET", mServers.http.url("/hello"), kGenerousSec);
    std::string& kind = made.plan.request.kind;
    switch (dice.between(1, 12)) {
        case 1: {
            kind = "silent card cut short";
            Plan plan = finish(std::move(made));
            plan.bytes.resize(static_cast<size_t>(dice.between(0, static_cast<int>(nameableSize(plan.bytes)) - 1)));
            return plan;
        }
        case 2: {
            kind = "silent card announced short";
            Plan plan = finish(std::move(made));
            plan.bytes[0] = static_cast<char>(dice.between(0, 30));
            plan.bytes[1] = '\0';
            return plan;
        }
        case 3: {
            kind = "silent noise";
            Plan plan = finish(std::move(made));
            plan.bytes = dice.bytes(static_cast<size_t>(dice.between(0, 5000)));
            return plan;
        }
        case 4:
            kind = "silent TX-ID of another type";
            made.set(Card().string("TX-ID", "7"));
            break;
        case 5:
            kind = "silent without TX-ID";
            made.drop("TX-ID");
            break;
        case 6:
            kind = "silent without FROM";
            made.drop("FROM");
            break;
        case 7:
            kind = "silent without a kind";
            made.drop("REQ");
            break;
        case 8:
            kind = "silent KILL";
            made.set(Card().string("REQ", "KILL"));
            break;
        case 9:
            kind = "silent RESP";
            made.drop("REQ");
            made.set(Card().string("RESP", "GET"));
            break;
        case 10:
            kind = "silent in the controller's name";
            made.set(Card().string("FROM", controller));
            break;
        case 11:
            kind = "silent name of 4 KiB";
            made.set(Card().string("FROM", std::string(4096, 'n')));
            break;
        default: {
            static const std::vector<std::string> kPlaces = {
                "../escape", "../../../etc/passwd", "/tmp/x", ".", "..", "", "a/b"};
            kind = "silent name that leads away";
            made.set(Card().string("FROM", dice.pick(kPlaces)));
        }
    }
    return finish(std::move(made));
}

}  // namespace chaos
