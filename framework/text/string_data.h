// The counted 8-bit character buffer that names and strings share. Its bytes never change once it is shared.
#pragma once

#include <compare>
#include <iosfwd>
#include <string_view>
#include <utility>

#include "framework/memory/counted_word.h"
#include "framework/memory/export.h"
#include "framework/text/reverse_bits.h"

namespace Nox {

template <class Char>
class StringN;

namespace detail {
struct EmptyStringData;
}  // namespace detail

/// One counted pointer to an immutable buffer of bytes. Copies share the buffer; the empty text is one static buffer.
template <>
class NOX_EXPORT StringN<unsigned char> {
 public:
  /// The buffer: its count is its first word; the bytes and a closing zero follow the header.
  class Data {
   public:
    Data(Data const&) = delete;
    Data& operator=(Data const&) = delete;

    /// A buffer of `count` bytes, to be filled by its maker, which owns the one reference.
    static Data* entries(unsigned count);
    /// The buffer of the empty text: static, never counted.
    static inline Data* empty() noexcept;

    std::string_view view() const noexcept { return {bytes(), length_}; }
    char const* bytes() const noexcept { return reinterpret_cast<char const*>(this + 1); }
    char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }

    /// 32-bit hash of the bytes: computed when first asked for, once per buffer.
    std::uint32_t hash() const noexcept { return reverseBits(reversedHash()); }
    /// The same with its bits turned round, which is how collections are ordered.
    std::uint32_t reversedHash() const noexcept {
      std::uint32_t const known = reversedHash_.load(std::memory_order_relaxed);
      return known != 0 ? known : computeReversedHash();
    }
    bool operator==(Data const& other) const noexcept { return this == &other || view() == other.view(); }
    /// Byte-wise order.
    bool operator<(Data const& other) const noexcept { return this != &other && view() < other.view(); }

    CountedWord& references() noexcept { return references_; }
    CountedWord const& references() const noexcept { return references_; }
    void release() noexcept {
      if (references_.release()) destroy();
    }

   private:
    friend struct detail::EmptyStringData;
    constexpr explicit Data(unsigned length, std::uint32_t word) noexcept : references_(word), length_(length) {}
    ~Data() = default;
    std::uint32_t computeReversedHash() const noexcept;
    void destroy() noexcept;

    CountedWord references_;
    std::uint32_t length_;
    mutable std::atomic<std::uint32_t> reversedHash_{0};
  };

  StringN() noexcept : data_(Data::empty()) {}
  explicit StringN(std::string_view text);
  StringN(StringN const& other) noexcept : data_(other.data_) { data_->references().reference(); }
  StringN(StringN&& other) noexcept : data_(std::exchange(other.data_, Data::empty())) {}
  StringN& operator=(StringN other) noexcept {
    std::swap(data_, other.data_);
    return *this;
  }
  ~StringN() { data_->release(); }

  std::string_view view() const noexcept { return data_->view(); }
  /// The bytes, closed by a zero; valid as long as this text holds its buffer.
  char const* charPtr() const noexcept { return std::as_const(*data_).bytes(); }
  bool empty() const noexcept { return view().empty(); }
  /// True for a text that is not empty.
  explicit operator bool() const noexcept { return !empty(); }
  std::uint32_t hash() const noexcept { return data_->hash(); }
  std::uint32_t reversedHash() const noexcept { return data_->reversedHash(); }
  Data const* data() const noexcept { return data_; }
  /// Whether others hold the buffer, too.
  bool isShared() const noexcept { return std::as_const(*data_).references().value() != 1; }

  friend bool operator==(StringN const& a, StringN const& b) noexcept { return *a.data_ == *b.data_; }
  friend bool operator<(StringN const& a, StringN const& b) noexcept { return *a.data_ < *b.data_; }
  friend bool operator==(StringN const& a, std::string_view b) noexcept { return a.view() == b; }

 protected:
  struct Adopt {};
  StringN(Adopt /*tag*/, Data* data) noexcept : data_(data) {}

 private:
  Data* data_;
};

namespace detail {
/// The empty text with its closing zero, never counted and never freed.
struct EmptyStringData {
  StringN<unsigned char>::Data data{0, CountedWord::kStatic};
  char close = '\0';
};
extern NOX_EXPORT EmptyStringData emptyStringData;
}  // namespace detail

inline StringN<unsigned char>::Data* StringN<unsigned char>::Data::empty() noexcept {
  return &detail::emptyStringData.data;
}

/// Prints the bytes as they are.
NOX_EXPORT std::ostream& operator<<(std::ostream& out, StringN<unsigned char> const& text);

}  // namespace Nox
