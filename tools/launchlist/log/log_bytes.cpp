#include "tools/launchlist/log/log_bytes.h"

#include <iterator>
#include <string_view>

#ifdef KESTRANE_HAVE_ZLIB
#include <zlib.h>
#endif

namespace launchlist {

namespace {

bool IsGzip(std::string_view bytes)
{
    return bytes.substr(0, 2) == "\x1f\x8b";
}

bool IsUtf16(std::string_view bytes)
{
    if (bytes.substr(0, 2) == "\xff\xfe" || bytes.substr(0, 2) == "\xfe\xff") {
        return true;
    }
    // A log begins with the year, so its first bytes show the encoding without a mark.
    return bytes.size() >= 4 && ((bytes[0] == '2' && bytes[1] == '\0' && bytes[3] == '\0') ||
                                 (bytes[0] == '\0' && bytes[1] == '2' && bytes[2] == '\0'));
}

#ifdef KESTRANE_HAVE_ZLIB

// "1 GiB", in the largest unit of which it is a multiple.
std::string SizeText(std::size_t size)
{
    constexpr const char* kUnits[] = {" bytes", " KiB", " MiB", " GiB"};
    std::size_t unit = 0;
    while (size % 1024 == 0 && unit + 1 < std::size(kUnits)) {
        size /= 1024;
        ++unit;
    }
    return std::to_string(size) + kUnits[unit];
}

// Appends the decompressed bytes of all members of `compressed` to `bytes`, and stops soon after
// the first `max_size` of them.
bool Inflate(std::string& compressed, std::string& bytes, std::string& error, std::size_t max_size)
{
    constexpr std::size_t kChunk = std::size_t{1} << 20U;
    constexpr int kGzipOnly = 15 + 16;
    z_stream stream = {};
    stream.next_in = reinterpret_cast<Bytef*>(compressed.data());
    stream.avail_in = static_cast<uInt>(compressed.size());
    int result = inflateInit2(&stream, kGzipOnly);
    while (result == Z_OK && bytes.size() <= max_size) {
        const std::size_t used = bytes.size();
        bytes.resize(used + kChunk);
        stream.next_out = reinterpret_cast<Bytef*>(bytes.data() + used);
        stream.avail_out = static_cast<uInt>(kChunk);
        result = inflate(&stream, Z_NO_FLUSH);
        bytes.resize(bytes.size() - stream.avail_out);
        if (result == Z_STREAM_END && stream.avail_in > 0) {
            result = inflateReset(&stream);
        }
    }
    inflateEnd(&stream);
    if (bytes.size() > max_size) {
        error = "decompresses to more than " + SizeText(max_size);
        return false;
    }
    if (result != Z_STREAM_END) {
        error = "is damaged: gzip cannot decompress it completely";
        return false;
    }
    return true;
}

bool Decompress(std::string& bytes, std::string& error, std::size_t max_size)
{
    if (bytes.size() > max_size) {
        error = "is larger than " + SizeText(max_size);
        return false;
    }
    std::string compressed;
    compressed.swap(bytes);
    return Inflate(compressed, bytes, error, max_size);
}

#else

bool Decompress(std::string&, std::string& error, std::size_t)
{
    error = "is compressed by gzip, which this build cannot read; decompress it first";
    return false;
}

#endif

void RemoveCarriageReturns(std::string& bytes)
{
    if (bytes.find("\r\n") == std::string::npos) {
        return;
    }
    // The log library escapes a CR in a text, so one before a line feed was added later.
    std::size_t out = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] != '\r' || i + 1 == bytes.size() || bytes[i + 1] != '\n') {
            bytes[out++] = bytes[i];
        }
    }
    bytes.resize(out);
}

}  // namespace

bool PrepareLog(std::string& bytes, std::string& error, std::size_t max_decompressed)
{
    if (IsGzip(bytes) && !Decompress(bytes, error, max_decompressed)) {
        return false;
    }
    if (IsUtf16(bytes)) {
        error = "is UTF-16 text; convert it to UTF-8 first";
        return false;
    }
    RemoveCarriageReturns(bytes);
    return true;
}

}  // namespace launchlist
