// The shared character buffer: its allocation, its hash, its printing.
#include "framework/text/string_data.h"

#include <cstring>
#include <limits>
#include <new>
#include <ostream>

#include "framework/memory/assertion.h"
#include "framework/memory/pool.h"

namespace Nox {

using Data = StringN<unsigned char>::Data;

constinit detail::EmptyStringData detail::emptyStringData;

Data* Data::entries(unsigned count) {
  std::size_t const size = sizeof(Data) + count + 1;
  Data* data = new (NoxMemPool::operator new(size)) Data(count, 1);
  data->bytes()[count] = '\0';
  return data;
}

void Data::destroy() noexcept {
  std::size_t const size = sizeof(Data) + length_ + 1;
  this->~Data();
  NoxMemPool::operator delete(this, size);
}

/// FNV-1a over the bytes, then a mixing step: the collections order by the low bits, which FNV alone leaves uneven for
/// short names.
std::uint32_t Data::computeReversedHash() const noexcept {
  std::uint32_t h = 2166136261U;
  for (char const c : view()) h = (h ^ static_cast<unsigned char>(c)) * 16777619U;
  h = (h ^ (h >> 16)) * 0x7FEB352DU;
  h = (h ^ (h >> 15)) * 0x846CA68BU;
  h = reverseBits(h ^ (h >> 16));
  reversedHash_.store(h, std::memory_order_relaxed);
  return h;
}

StringN<unsigned char>::StringN(std::string_view text) : data_(Data::empty()) {
  if (text.empty()) return;
  NOX_ASSERT(text.size() < std::numeric_limits<unsigned>::max(), "text longer than a string can hold");
  data_ = Data::entries(static_cast<unsigned>(text.size()));
  std::memcpy(data_->bytes(), text.data(), text.size());
}

std::ostream& operator<<(std::ostream& out, StringN<unsigned char> const& text) { return out << text.view(); }

}  // namespace Nox
