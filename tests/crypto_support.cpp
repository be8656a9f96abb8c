#include "crypto_support.h"

#include <openssl/evp.h>

#include <memory>
#include <regex>
#include <sstream>

#include "test_support.h"

std::string DecryptAes128Cbc(const uint8_t key[16], const std::array<uint8_t, 16>& iv,
                             const std::string& cipher) {
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                      &EVP_CIPHER_CTX_free);
  std::string plain(cipher.size() + 16, '\0');
  int n = 0, m = 0;
  if (EVP_DecryptInit_ex(ctx.get(), EVP_aes_128_cbc(), nullptr, key, iv.data()) != 1 ||
      EVP_DecryptUpdate(ctx.get(), reinterpret_cast<unsigned char*>(plain.data()), &n,
                        reinterpret_cast<const unsigned char*>(cipher.data()),
                        static_cast<int>(cipher.size())) != 1 ||
      EVP_DecryptFinal_ex(ctx.get(), reinterpret_cast<unsigned char*>(plain.data()) + n, &m) != 1)
    return "<decrypt failed>";
  plain.resize(static_cast<size_t>(n + m));
  return plain;
}

std::array<uint8_t, 16> IVFromHex(const std::string& hex) {
  std::array<uint8_t, 16> iv{};
  // Right-aligned: the hex text is a number, so missing leading digits are zeros.
  int byte = 15;
  for (size_t end = hex.size(); end > 0 && byte >= 0; byte--) {
    size_t start = end >= 2 ? end - 2 : 0;
    iv[static_cast<size_t>(byte)] =
        static_cast<uint8_t>(std::stoul(hex.substr(start, end - start), nullptr, 16));
    end = start;
  }
  return iv;
}

std::vector<KeyedEntry> ReadKeyedPlaylist(const std::string& text) {
  std::vector<KeyedEntry> entries;
  std::string keyUri, iv;
  uint64_t sequence = 0;
  std::regex keyLine(R"re(#EXT-X-KEY:METHOD=AES-128,URI="([^"]*)"(,IV=0x([0-9a-f]+))?)re");
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    std::smatch m;
    if (std::regex_match(line, m, keyLine)) {
      keyUri = m[1];
      iv = m[3];
    } else if (!line.empty() && line[0] != '#') {
      entries.push_back({line, keyUri, iv, sequence++});
    }
  }
  return entries;
}

std::string DecryptEntry(const std::string& dir, const KeyedEntry& entry) {
  std::string key = ReadFile(dir + "/" + entry.keyUri.substr(entry.keyUri.rfind('/') + 1));
  if (key.size() != 16) return "<no key file for " + entry.keyUri + ">";
  std::array<uint8_t, 16> iv{};
  if (entry.ivHex.empty()) {
    for (size_t b = 0; b < 8; b++) iv[15 - b] = static_cast<uint8_t>(entry.sequence >> (8 * b));
  } else {
    iv = IVFromHex(entry.ivHex);
  }
  return DecryptAes128Cbc(reinterpret_cast<const uint8_t*>(key.data()), iv,
                          ReadFile(dir + "/" + entry.uri));
}
