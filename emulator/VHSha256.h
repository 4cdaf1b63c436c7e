// SHA-256 over a stream of bytes, copyable so that a running digest can be
// carried over chunks and rolled back when a chunk fails.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

struct evp_md_ctx_st;

namespace vh::emulator {

class VHSha256 {
  public:
    VHSha256();
    VHSha256(const VHSha256& other);
    VHSha256& operator=(const VHSha256& other);
    ~VHSha256();

    void update(const char* data, size_t length);
    // Lower-case hex of the digest of everything given so far.
    std::string hex() const;

  private:
    evp_md_ctx_st* context_;
};

}  // namespace vh::emulator
