// Reading the start of a segment encrypted with AES-128 (CBC with PKCS#7 padding over the whole
// segment), enough to see its header.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/status.h"

// The IV of a segment: the IV attribute of its key ("0x" and up to 32 hexadecimal digits, a
// number written big-endian into 16 bytes), else the segment's media sequence number. False for
// an IV attribute that is not such a number.
bool SegmentIV(std::string_view ivAttribute, uint64_t mediaSequence, std::array<uint8_t, 16>* iv);

// Decrypts the whole blocks of `cipher`, the first bytes of a segment. When `whole` is true,
// `cipher` is the entire segment and its padding is removed. kErrBadArgument for a key that is
// not 16 bytes, kErrCryptor when the cipher fails or the padding is not valid.
Status DecryptSegmentHead(std::string_view key, const std::array<uint8_t, 16>& iv,
                          std::string_view cipher, bool whole, std::string* plain);
