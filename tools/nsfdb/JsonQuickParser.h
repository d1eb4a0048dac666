// The fast path of reading a large JSON file: RapidJSON's SAX reader gives a handler the same
// events as nlohmann's sax_parse, several times faster, and stops (Parse returns false) at the
// first thing it leaves to nlohmann's parser: any fault, or a number it does not convert itself.
// Every event it has given is one nlohmann's parser gives at the same point, so the full parser
// can take over from the start of the file by passing over events() events, and then reports a
// fault with its own message and position.
#ifndef NSFDB_JSONQUICKPARSER_H
#define NSFDB_JSONQUICKPARSER_H

#include <rapidjson/filereadstream.h>
#include <rapidjson/reader.h>

#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace nsfdb {

class QuickParser {
public:
    using ReadError = void (*)();

    // Reads from file's current position; readError is called (and throws) when reading fails.
    QuickParser(std::FILE* file, ReadError readError) : file_(file), buffer_(1 << 16), readError_(readError) {}

    // Gives the handler the whole document's events: false when it stopped first (events() were
    // given).
    template <typename Handler>
    bool Parse(Handler& handler) {
        if (!SkipByteOrderMark()) return false;
        rapidjson::FileReadStream in(file_, buffer_.data(), buffer_.size());
        Events<Handler> events{handler, events_, {}};
        rapidjson::Reader reader;
        constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
                                    rapidjson::kParseNumbersAsStringsFlag;
        bool done = !reader.Parse<kFlags>(in, events).IsError();
        if (!done && std::ferror(file_)) readError_();
        return done;
    }

    size_t events() const { return events_; }

private:
    // RapidJSON's callbacks, as the handler's events. A callback answering false ends the parse.
    template <typename Handler>
    struct Events {
        Handler& handler;
        size_t& given;
        std::string text;

        // Counts an event the handler took; a handler that answers false ends the parse as the
        // full parser would, which is left to say what happens then.
        bool Give(bool accepted) {
            ++given;
            return accepted;
        }
        bool Null() { return Give(handler.null()); }
        bool Bool(bool value) { return Give(handler.boolean(value)); }
        bool Int(int) { return false; }  // numbers all come as text (kParseNumbersAsStringsFlag)
        bool Uint(unsigned) { return false; }
        bool Int64(int64_t) { return false; }
        bool Uint64(uint64_t) { return false; }
        bool Double(double) { return false; }
        bool RawNumber(const char* digits, rapidjson::SizeType length, bool) {
            text.assign(digits, length);
            return Number();
        }
        bool String(const char* chars, rapidjson::SizeType length, bool) {
            if (!Take(chars, length)) return false;
            return Give(handler.string(text));
        }
        bool Key(const char* chars, rapidjson::SizeType length, bool) {
            if (!Take(chars, length)) return false;
            return Give(handler.key(text));
        }
        bool StartObject() { return Give(handler.start_object(size_t(-1))); }
        bool EndObject(rapidjson::SizeType) { return Give(handler.end_object()); }
        bool StartArray() { return Give(handler.start_array(size_t(-1))); }
        bool EndArray(rapidjson::SizeType) { return Give(handler.end_array()); }

        // The input is checked to be UTF-8, so an encoded surrogate in a string came from a
        // \u escape that is not a pair, which the full parser refuses.
        bool Take(const char* chars, rapidjson::SizeType length) {
            text.assign(chars, length);
            for (size_t i = 0; i + 1 < text.size(); ++i)
                if (static_cast<unsigned char>(text[i]) == 0xED && static_cast<unsigned char>(text[i + 1]) >= 0xA0)
                    return false;
            return true;
        }

        // A number as the full parser reads it: a sign only for the negative whole numbers; whole
        // numbers beyond 64 bits (which it reads as floating point) are left to it.
        bool Number() {
            bool whole = text.find_first_of(".eE") == std::string::npos;
            errno = 0;
            char* end = nullptr;
            if (!whole) {
                if (*std::localeconv()->decimal_point != '.') return false;  // strtod would read the text otherwise
                double value = std::strtod(text.c_str(), &end);
                if (!std::isfinite(value)) return false;
                return Give(handler.number_float(value, text));
            }
            if (text[0] == '-') {
                long long value = std::strtoll(text.c_str(), &end, 10);
                if (errno == ERANGE) return false;
                return Give(handler.number_integer(value));
            }
            unsigned long long value = std::strtoull(text.c_str(), &end, 10);
            if (errno == ERANGE) return false;
            return Give(handler.number_unsigned(value));
        }
    };

    // A UTF-8 byte order mark is passed over without an event, as the full parser does; false
    // for a file that starts like one but is not.
    bool SkipByteOrderMark() {
        long start = std::ftell(file_);
        unsigned char head[3] = {0, 0, 0};
        size_t got = std::fread(head, 1, sizeof head, file_);
        if (got == 0 && std::ferror(file_)) readError_();
        if (got > 0 && head[0] == 0xEF) return got == 3 && head[1] == 0xBB && head[2] == 0xBF;
        return start >= 0 && std::fseek(file_, start, SEEK_SET) == 0;
    }

    std::FILE* file_;
    std::vector<char> buffer_;
    ReadError readError_;
    size_t events_ = 0;
};

}  // namespace nsfdb

#endif
