// Crc32.h - the CRC-32 of a block of memory, the same reflected IEEE 802.3
// CRC that TStringNomFitx::FileCrc32 computes over a file.
#ifndef VARDA_FILESYS_CRC32_H
#define VARDA_FILESYS_CRC32_H

#include <cstddef>
#include <cstdint>

// The CRC of `n` bytes following on from `crc`, the CRC of the bytes before
// them (0 for none): Crc32(Crc32(0, a, na), b, nb) == the CRC of a then b.
uint32_t Crc32(uint32_t crc, const void* datos, size_t n);

#endif
