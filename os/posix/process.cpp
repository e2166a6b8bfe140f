#include "os/process.h"

#include <malloc.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <new>

namespace os {

std::optional<std::size_t> openFileLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return std::nullopt;
  return limit.rlim_cur;
}

void useLargePages() noexcept {
#if defined(__GLIBC__) && defined(MADV_HUGEPAGE)
  constexpr int kHeap = 96 << 20;
  ::mallopt(M_TOP_PAD, kHeap);
  ::mallopt(M_TRIM_THRESHOLD, 2 * kHeap);
  ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
  // Larger than the rest of the heap, so that the heap grows now.
  const std::unique_ptr<char[]> more(new (std::nothrow) char[1 << 20]);
  char* const end = static_cast<char*>(::sbrk(0));
  const std::uintptr_t used = reinterpret_cast<std::uintptr_t>(more.get()) & ~std::uintptr_t{0xFFF};
  const std::uintptr_t begin = std::max(used, reinterpret_cast<std::uintptr_t>(end) - kHeap);
  if (more != nullptr && used < reinterpret_cast<std::uintptr_t>(end))
    ::madvise(reinterpret_cast<void*>(begin), reinterpret_cast<std::uintptr_t>(end) - begin, MADV_HUGEPAGE);
#endif
}

std::string accountName() {
  const passwd* const account = ::getpwuid(::geteuid());
  return account != nullptr ? account->pw_name : std::to_string(::geteuid());
}

std::string machineName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace os
