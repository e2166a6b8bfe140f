#include "host/sha256.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace host {

std::string sha256(std::string_view bytes) {
  std::string digest(EVP_MAX_MD_SIZE, '\0');
  unsigned length = 0;
  auto* const place = reinterpret_cast<unsigned char*>(digest.data());
  if (EVP_Digest(bytes.data(), bytes.size(), place, &length, EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("cannot compute a SHA-256 hash");
  digest.resize(length);
  return digest;
}

std::string sha256Hex(std::string_view bytes) {
  std::string text;
  for (const char c : sha256(bytes)) {
    const auto byte = static_cast<unsigned char>(c);
    text.append({"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]});
  }
  return text;
}

}  // namespace host
