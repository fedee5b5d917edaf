#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// SHA-256 of a stream, fed a piece at a time: the hash of a client's whole output, of which
// the recording keeps only the first part.
class Sha256
{
public:
    Sha256();
    void add(const char *data, size_t size);
    // The hash in lower-case hexadecimal; the object is used up.
    std::string hex();

private:
    // Hashes count blocks of 64 bytes: with the CPU's SHA instructions where it has them,
    // which hash a long output about five times as fast.
    void blocks(const unsigned char *data, size_t count);
    void portableBlock(const unsigned char *data);

    uint32_t m_state[8];
    unsigned char m_buffer[64];
    size_t m_buffered = 0;
    uint64_t m_bytes = 0;
};
