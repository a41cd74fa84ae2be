// Builds documents from the parser's events, with the checks that the parser itself does not make.
#include "agent/document/json_reader.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <optional>

#include "agent/document/breath.h"
#include "agent/document/json_fault.h"
#include "agent/document/utf8.h"

namespace Agent {
namespace {

// An object or array that is still open.
struct OpenValue {
  bool isObject = false;
  // Whether `key` has been read and its value has not.
  bool isValueAwaited = false;
  std::string key;
  JsonMembers members;
  Json::array_t elements;
};

// The key that occurs twice; null if there is none. Sorted, so that a hostile object costs no more than n log n.
std::string const* duplicateKey(JsonMembers const& members) {
  std::vector<std::string const*> keys;
  keys.reserve(members.size());
  for (auto const& member : members) keys.push_back(&member.first);
  std::sort(keys.begin(), keys.end(), [](auto const* a, auto const* b) {
    Breath::take();
    return *a < *b;
  });
  auto const found =
      std::adjacent_find(keys.begin(), keys.end(), [](auto const* a, auto const* b) { return *a == *b; });
  return found == keys.end() ? nullptr : *found;
}

// Moves the members into an object of their exact size: growing one step by step would copy every member.
Json toObject(JsonMembers&& members) {
  Json object = Json::object();
  auto& stored = object.get_ref<Json::object_t&>();
  stored.reserve(members.size());
  for (auto& [key, value] : members) {
    Breath::take();
    stored.emplace_back(std::move(key), std::move(value));
  }
  return object;
}

Json toArray(Json::array_t&& elements) {
  Json array = Json::array();
  array.get_ref<Json::array_t&>() = std::move(elements);
  return array;
}

// Receives the parser's events; the names of its operations are the parser's. An event that returns false ends the
// parse, with the reason in `error_`.
class Builder {
 public:
  Builder(std::string_view text, JsonLimits const& limits) : text_(text), limits_(limits) {}

  bool null() { return add(Json()); }
  bool boolean(bool value) { return add(Json(value)); }
  bool number_unsigned(Json::number_unsigned_t value) { return add(Json(value)); }
  // Only `-0` arrives here as a zero; as an integer it would lose its sign.
  bool number_integer(Json::number_integer_t value) { return add(value == 0 ? Json(-0.0) : Json(value)); }
  bool number_float(Json::number_float_t value, std::string const&) { return add(Json(value)); }
  bool string(std::string& value) { return add(Json(std::move(value))); }
  // JSON texts have no binary values; the parser's interface wants the event all the same.
  bool binary(Json::binary_t&) { return false; }

  bool start_object(std::size_t) { return open(true); }
  bool start_array(std::size_t) { return open(false); }
  bool key(std::string& name) {
    open_.back().key = std::move(name);
    open_.back().isValueAwaited = true;
    return true;
  }

  bool end_object() {
    OpenValue closed = close();
    if (std::string const* const key = duplicateKey(closed.members)) {
      error_.emplace(memberField(field(), *key), "the same field twice in one object");
      if (open_.empty()) begun_ = std::move(closed.members);
      return false;
    }
    return add(toObject(std::move(closed.members)));
  }
  bool end_array() { return add(toArray(close().elements)); }

  bool parse_error(std::size_t bytesRead, std::string const& word, nlohmann::detail::exception const& exception) {
    constexpr int kNumberOverflow = 406;
    if (exception.id == kNumberOverflow) {
      error_.emplace(field(), "the number " + inQuotes(word) + " is beyond the range of a double");
      return false;
    }
    JsonFault fault{bytesRead, JsonFault::Inside::kNothing, false};
    if (!open_.empty()) {
      fault.inside = open_.back().isObject ? JsonFault::Inside::kObject : JsonFault::Inside::kArray;
      fault.isValueAwaited = open_.back().isValueAwaited;
    }
    error_.emplace(field(), explainFault(text_, fault));
    return false;
  }

  Json takeResult() { return std::move(result_); }
  [[noreturn]] void throwError() const {
    if (isLimit_) throw LimitError(*error_);
    throw InputError(*error_);
  }
  JsonMembers takeBegun() { return std::move(open_.empty() ? begun_ : open_.front().members); }

 private:
  bool add(Json&& value) {
    if (values_++ == limits_.values) return refuseSize("more than " + std::to_string(limits_.values) + " values");
    if (open_.empty()) {
      result_ = std::move(value);
    } else if (OpenValue& parent = open_.back(); parent.isObject) {
      parent.members.emplace_back(std::move(parent.key), std::move(value));
      parent.isValueAwaited = false;
    } else {
      parent.elements.push_back(std::move(value));
    }
    return true;
  }

  bool open(bool isObject) {
    if (open_.size() == limits_.depth)
      return refuseSize("nested deeper than " + std::to_string(limits_.depth) + " objects and arrays");
    open_.push_back({isObject, false, {}, {}, {}});
    return true;
  }

  // The outermost field says enough: the whole way down would be a line of its own.
  bool refuseSize(std::string const& reason) {
    error_.emplace(!open_.empty() && open_.front().isObject ? memberField("", open_.front().key) : "", reason);
    isLimit_ = true;
    return false;
  }

  OpenValue close() {
    OpenValue closed = std::move(open_.back());
    open_.pop_back();
    return closed;
  }

  // The place of the value being read.
  std::string field() const {
    std::string result;
    for (OpenValue const& value : open_) {
      if (!value.isObject) {
        result = elementField(result, value.elements.size());
      } else if (value.isValueAwaited) {
        result = memberField(result, value.key);
      }
    }
    return result;
  }

  std::string_view text_;
  JsonLimits limits_;
  std::size_t values_ = 0;
  std::vector<OpenValue> open_;
  Json result_;
  JsonMembers begun_;
  std::optional<InputError> error_;
  bool isLimit_ = false;
};

// What the parser would let pass: it takes a zero byte for the end, skips a byte order mark, and checks bytes outside
// strings only for being out of place.
void checkBytes(std::string_view text) {
  auto const refuse = [](std::size_t at, std::string const& what) {
    throw InputError("", "not valid JSON at byte " + std::to_string(at + 1) + ": " + what);
  };
  if (text.substr(0, 3) == "\xEF\xBB\xBF") refuse(0, "a byte order mark in front of the value");
  if (std::size_t const at = findInvalidUtf8(text); at != std::string_view::npos) {
    refuse(at, "invalid UTF-8: " + inQuotes(text.substr(at, 1)));
  }
  if (std::size_t const at = text.find('\0'); at != std::string_view::npos) refuse(at, "a zero byte");
}

// The characters of a text, of which the parser asks for one after the other; between two small pieces of it others are
// answered.
class Characters {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = char const*;
  using reference = char const&;

  explicit Characters(std::string_view text) : at_(text.data()), pieceEnd_(at_), end_(at_ + text.size()) {}

  reference operator*() const { return *at_; }
  Characters& operator++() {
    ++at_;
    return *this;
  }
  // The other one stands at the end.
  bool operator!=(Characters const& /*end*/) { return at_ != pieceEnd_ || goOn(); }

 private:
  static constexpr std::ptrdiff_t kPiece = 64;

  bool goOn() {
    Breath::take();
    pieceEnd_ += std::min(kPiece, end_ - at_);
    return at_ != pieceEnd_;
  }

  char const* at_;
  char const* pieceEnd_;
  char const* end_;
};

[[noreturn]] void refuseType(Json const& value, std::string const& field, std::string const& expected) {
  throw InputError(field, "expected " + expected + ", found " + describe(value));
}

}  // namespace

Json readJson(std::string_view text, JsonMembers* begun, JsonLimits const& limits) {
  checkBytes(text);
  Builder builder(text, limits);
  if (Json::sax_parse(Characters(text), Characters({}), &builder)) return builder.takeResult();
  if (begun) *begun = builder.takeBegun();
  builder.throwError();
}

std::string describe(Json const& value) {
  if (value.is_object()) return "an object";
  if (value.is_array()) return "an array";
  if (value.is_string()) return "the string " + inQuotes(value.get_ref<std::string const&>());
  if (value.is_number()) return "the number " + value.dump();
  return value.dump();
}

bool requireBool(Json const& value, std::string const& field) {
  if (!value.is_boolean()) refuseType(value, field, "true or false");
  return value.get<bool>();
}

std::string const& requireString(Json const& value, std::string const& field) {
  if (!value.is_string()) refuseType(value, field, "a string");
  return value.get_ref<std::string const&>();
}

Json::object_t const& requireObject(Json const& value, std::string const& field) {
  if (!value.is_object()) refuseType(value, field, "an object");
  return value.get_ref<Json::object_t const&>();
}

std::uint32_t requireUnsigned(Json const& value, std::string const& field) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  if (!value.is_number_unsigned() || value.get<std::uint64_t>() > kLargest) {
    refuseType(value, field, "a whole number from 0 to 4294967295, written without sign, fraction and exponent");
  }
  return static_cast<std::uint32_t>(value.get<std::uint64_t>());
}

}  // namespace Agent
