// String operations that make new buffers.
#include "framework/text/string8.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "framework/memory/assertion.h"

namespace Nox {

void String8::init(char const* text, unsigned from, unsigned count) {
  *this = String8(std::string_view(text + from, count));
}

String8 String8::operator+(String8 const& tail) const {
  if (empty()) return tail;
  if (tail.empty()) return *this;
  std::string_view const a = view();
  std::string_view const b = tail.view();
  Data* data = Data::entries(static_cast<unsigned>(a.size() + b.size()));
  std::memcpy(data->bytes(), a.data(), a.size());
  std::memcpy(data->bytes() + a.size(), b.data(), b.size());
  return {Adopt{}, data};
}

String8 format(char const* pattern, ...) {
  va_list args;
  va_start(args, pattern);
  va_list again;
  va_copy(again, args);
  int const length = std::vsnprintf(nullptr, 0, pattern, args);
  va_end(args);
  NOX_ASSERT(length >= 0, "format");
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, pattern, again);
  va_end(again);
  return text;
}

}  // namespace Nox
