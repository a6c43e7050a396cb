#include "tools/launchlist/log/log_bytes.h"

#include <gtest/gtest.h>

#include <string>

#ifdef KESTRANE_HAVE_ZLIB
#include <zlib.h>
#endif

using namespace launchlist;

namespace {

#ifdef KESTRANE_HAVE_ZLIB

// `text`, compressed by gzip. Level 0 stores it: the result is larger than the text.
std::string Gzip(std::string text, int level = Z_DEFAULT_COMPRESSION)
{
    constexpr int kGzip = 15 + 16;
    z_stream stream = {};
    EXPECT_EQ(deflateInit2(&stream, level, Z_DEFLATED, kGzip, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string compressed(deflateBound(&stream, static_cast<uLong>(text.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(text.data());
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
    stream.avail_out = static_cast<uInt>(compressed.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    compressed.resize(stream.total_out);
    deflateEnd(&stream);
    return compressed;
}

// Why a log of these bytes cannot be used; "" if it can be.
std::string Problem(std::string bytes, std::size_t max_decompressed = kMaxDecompressed)
{
    std::string error;
    return PrepareLog(bytes, error, max_decompressed) ? "" : error;
}

constexpr std::size_t kLimit = 4096;

#endif

}  // namespace

TEST(PrepareLog, AcceptsZeroBytesThatAreNoEncoding)
{
    const std::string zero(1, '\0');
    for (const std::string& text :
         {"2" + zero, zero + "2" + zero, "2" + zero + "06", "3" + zero + "0" + zero, zero + "206",
          zero + "3" + zero + "0", zero + zero + zero + zero}) {
        std::string bytes = text;
        std::string error;
        EXPECT_TRUE(PrepareLog(bytes, error)) << error;
        EXPECT_EQ(bytes, text);
    }
}

TEST(PrepareLog, RemovesCarriageReturnsAtLineEndsOnly)
{
    std::string bytes = "a\rb\r\n\r\r\nc\r";
    std::string error;
    EXPECT_TRUE(PrepareLog(bytes, error)) << error;
    EXPECT_EQ(bytes, "a\rb\n\r\nc\r");
}

#ifdef KESTRANE_HAVE_ZLIB

TEST(PrepareLog, AcceptsLogsThatDecompressToTheLimit)
{
    for (const std::size_t size : {kLimit - 1, kLimit}) {
        std::string bytes = Gzip(std::string(size, '3'));
        std::string error;
        EXPECT_TRUE(PrepareLog(bytes, error, kLimit)) << error;
        EXPECT_EQ(bytes, std::string(size, '3'));
    }
}

TEST(PrepareLog, RejectsLogsThatDecompressToMore)
{
    const std::string message = "decompresses to more than 4 KiB";
    EXPECT_EQ(Problem(Gzip(std::string(kLimit + 1, '3')), kLimit), message);
    // Far more than is decompressed at once.
    EXPECT_EQ(Problem(Gzip(std::string(std::size_t{3} << 20U, '3')), kLimit), message);
    const std::string half = Gzip(std::string(kLimit / 2, '3'));
    EXPECT_EQ(Problem(half + half, kLimit), "");
    EXPECT_EQ(Problem(half + half + Gzip("3"), kLimit), message);
}

TEST(PrepareLog, RejectsCompressedLogsThatAreLargerThanTheLimit)
{
    const std::string compressed = Gzip(std::string(kLimit, '3'), Z_NO_COMPRESSION);
    ASSERT_GT(compressed.size(), kLimit);
    EXPECT_EQ(Problem(compressed, compressed.size()), "");
    EXPECT_EQ(Problem(compressed, kLimit), "is larger than 4 KiB");
    EXPECT_EQ(Problem(compressed, kLimit + 1), "is larger than 4097 bytes");
}

// launchlist(1) names the limit.
TEST(PrepareLog, HasALimitOf1GiB)
{
    EXPECT_EQ(kMaxDecompressed, std::size_t{1024} * 1024 * 1024);
}

TEST(PrepareLog, RejectsDamagedLogs)
{
    const std::string whole = Gzip("3 lines");
    EXPECT_EQ(Problem(whole), "");
    EXPECT_EQ(Problem(whole.substr(0, whole.size() - 1)),
              "is damaged: gzip cannot decompress it completely");
}

#endif
