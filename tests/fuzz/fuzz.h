// Shared by the fuzz targets.
//
// Each target is a source with libFuzzer's entry point. Its input is text where possible, so that
// seeds can be read and written by hand: some lines first, then the rest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

class FuzzInput
{
public:
    FuzzInput(const std::uint8_t* data, std::size_t size)
        : m_text(reinterpret_cast<const char*>(data), size)
    {
    }

    // The next line, without its end.
    std::string TakeLine()
    {
        const std::size_t end = m_text.find('\n', m_start);
        std::string line = m_text.substr(m_start, end - m_start);
        m_start = end == std::string::npos ? m_text.size() : end + 1;
        return line;
    }

    // The number at the start of the next line, reduced to the range 0 to `limit` - 1.
    unsigned TakeNumber(unsigned limit)
    {
        return static_cast<unsigned>(std::strtoul(TakeLine().c_str(), nullptr, 10) % limit);
    }

    std::string Rest() const { return m_text.substr(m_start); }

private:
    const std::string m_text;
    std::size_t m_start = 0;
};

// The part of `text` that a function sees if it takes a C string.
inline std::string UpToNul(const std::string& text)
{
    return text.substr(0, text.find('\0'));
}

// Aborts unless `holds`, so that the fuzzer keeps the input.
inline void Require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "Does not hold: %s\n", what);
        std::abort();
    }
}
