#include "tools/launchlist/log/log_bytes.h"

#include <algorithm>
#include <string_view>

#ifdef KESTRANE_HAVE_ZLIB
#include <zlib.h>
#endif

namespace launchlist {

namespace {

// Far more than any log. Needed because a small file may decompress to any size.
[[maybe_unused]] constexpr std::size_t kMaxLog = std::size_t{1} << 30U;

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

// Appends the decompressed bytes of all members of `compressed` to `bytes`.
bool Inflate(std::string& compressed, std::string& bytes, std::string& error)
{
    constexpr std::size_t kChunk = std::size_t{1} << 20U;
    constexpr int kGzipOnly = 15 + 16;
    z_stream stream = {};
    stream.next_in = reinterpret_cast<Bytef*>(compressed.data());
    stream.avail_in = static_cast<uInt>(compressed.size());
    int result = inflateInit2(&stream, kGzipOnly);
    while (result == Z_OK && bytes.size() <= kMaxLog) {
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
    if (result == Z_STREAM_END) {
        return true;
    }
    error = bytes.size() > kMaxLog ? "decompresses to more than 1 GiB"
                                   : "is damaged: gzip cannot decompress it completely";
    return false;
}

bool Decompress(std::string& bytes, std::string& error)
{
    if (bytes.size() > kMaxLog) {
        error = "is larger than 1 GiB";
        return false;
    }
    std::string compressed;
    compressed.swap(bytes);
    return Inflate(compressed, bytes, error);
}

#else

bool Decompress(std::string&, std::string& error)
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

bool PrepareLog(std::string& bytes, std::string& error)
{
    if (IsGzip(bytes) && !Decompress(bytes, error)) {
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
