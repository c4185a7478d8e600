#include "CodecCommand.h"

#include <memory>
#include <string>
#include <vector>

#include "CardJson.h"
#include "CardText.h"
#include "Files.h"
#include "Session.h"
#include "Text.h"

namespace mqctl {

namespace {

constexpr size_t kHexLine = 32;

struct DecodeOptions {
    std::vector<std::string> files;
    bool hex = false;
};

struct EncodeOptions {
    std::string file = "-";
    std::string outputFile;
    bool hex = false;
};

std::string nameOf(const std::string& file) {
    return file == "-" ? "standard input" : file;
}

class Decode {
public:
    Decode(Session& session, const DecodeOptions& options) : mSession(session), mOptions(options) {}

    int run() {
        const std::vector<std::string> files = mOptions.files.empty() ? std::vector<std::string>{"-"} : mOptions.files;
        for (const std::string& file : files) {
            if (const int code = decode(file, files.size() > 1); code != kOk) {
                return code;
            }
        }
        return kOk;
    }

private:
    int decode(const std::string& file, bool several) {
        std::string bytes;
        std::string error;
        if (!readWholeFile(file, &bytes, &error)) {
            return mSession.out.fail(kUsage, error);
        }
        if (mOptions.hex) {
            std::optional<std::string> binary = fromHex(bytes);
            if (!binary.has_value()) {
                return mSession.out.fail(kMalformed, nameOf(file) + ": pairs of hexadecimal digits are wanted");
            }
            bytes = std::move(*binary);
        }
        size_t begin = 0;
        do {
            Fields fields;
            Malformed why;
            const std::optional<size_t> end = parseCard(bytes, begin, &fields, &why);
            if (end.has_value() || !mSession.out.json()) {
                write(fields, end.value_or(bytes.size()) - begin,
                      (several ? file + ": " : "") + (end.has_value() ? "" : "damaged "));
            }
            if (!end.has_value()) {
                return malformed(file, why);
            }
            begin = *end;
        } while (begin < bytes.size() && mSession.out.flush());
        return kOk;
    }

    void write(const Fields& fields, size_t size, const std::string& prefix) {
        if (mSession.out.json()) {
            mSession.out.writeJson(cardToJson(fields));
        } else {
            mSession.out.write(
                mSession.out.paint(Style::kHeading, printable(prefix) + "postcard, " + summaryOf(size, fields)) + "\n" +
                cardToText(fields, 2));
        }
    }

    int malformed(const std::string& file, const Malformed& why) {
        (void)mSession.out.flush();  // what could be read comes first
        return mSession.out.fail(
            kMalformed, nameOf(file) + ": malformed at byte " + std::to_string(why.offset) + ": " + why.reason);
    }

    Session& mSession;
    const DecodeOptions& mOptions;
};

int runEncode(Session& session, const EncodeOptions& options) {
    std::string text;
    std::string bytes;
    std::string error;
    if (!readWholeFile(options.file, &text, &error)) {
        return session.out.fail(kUsage, error);
    }
    if (!cardsFromText(text, &bytes, &error)) {
        return session.out.fail(kMalformed, nameOf(options.file) + ": " + error);
    }
    if (options.hex) {
        std::string lines;
        for (size_t at = 0; at < bytes.size(); at += kHexLine) {
            lines += toHex(std::string_view(bytes).substr(at, kHexLine), " ") + "\n";
        }
        bytes = lines;
    }
    if (!options.outputFile.empty() && options.outputFile != "-") {
        return writeWholeFile(options.outputFile, bytes.data(), bytes.size(), &error)
                   ? kOk
                   : session.out.fail(kOwnFailure, error);
    }
    if (session.out.outIsTerminal() && options.outputFile.empty() && !options.hex) {
        return session.out.fail(kUsage, "bytes are not for a terminal: use \"-o FILE\", \"--hex\", or \"-o -\"");
    }
    session.out.write(bytes);
    return kOk;
}

}  // namespace

void addCodecCommands(CLI::App& app, Session& session) {
    const auto decode = std::make_shared<DecodeOptions>();
    CLI::App* command = addCommand(app, "decode", "postcard bytes to text or JSON");
    command->add_option("FILE", decode->files, "one card after another; - is stdin");
    command->add_flag("--hex", decode->hex, "the input is hexadecimal digits, blanks ignored");
    command->callback(
        [&session, decode] { session.command = [&session, decode] { return Decode(session, *decode).run(); }; });

    const auto encode = std::make_shared<EncodeOptions>();
    command = addCommand(app, "encode", "JSON, as decode --json prints it, to postcard bytes");
    command->add_option("FILE", encode->file, "one card after another; - is stdin");
    command->add_option("-o,--output", encode->outputFile, "write to FILE; - is stdout")->type_name("FILE");
    command->add_flag("--hex", encode->hex, "write hexadecimal digits");
    command->callback(
        [&session, encode] { session.command = [&session, encode] { return runEncode(session, *encode); }; });
}

}  // namespace mqctl
