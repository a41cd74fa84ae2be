// The framework's exceptions. Their type information is emitted here alone, so that a handler in one library catches
// what another one throws.
#include "framework/text/exception.h"

namespace Nox {

void Exception::IdBitArray::add(Id id) {
  if (words_.size() <= id / 64) words_.resize(id / 64 + 1);
  words_[id / 64] |= std::uint64_t{1} << (id % 64);
}

bool Exception::IdBitArray::has(Id id) const noexcept {
  return id / 64 < words_.size() && (words_[id / 64] >> (id % 64) & 1) != 0;
}

Exception::Exception(String8 message, IdBitArray ids, bool flag)
    : message_(std::move(message)), ids_(std::move(ids)), flag_(flag) {}

Exception::~Exception() = default;
RangeException::~RangeException() = default;
NameInUseException::~NameInUseException() = default;
ConstException::~ConstException() = default;
TypeException::~TypeException() = default;
OpNotSupportedException::~OpNotSupportedException() = default;
UnknownArgException::~UnknownArgException() = default;
BadIndexAttrException::~BadIndexAttrException() = default;
LibraryException::~LibraryException() = default;

void throwRangeException(String8 const& message) { throw RangeException(message); }
void throwNameInUseException(String8 const& message) { throw NameInUseException(message); }

}  // namespace Nox
