// Tracing: the statement macros, the facility handle, and the two channels that a message goes to.
#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "framework/memory/export.h"
#include "framework/text/string8.h"
#include "framework/trace/swiftlog.h"

/// Everything here belongs to the one thread that delivers notifications; nothing is locked.
namespace Nox {

// Levels and facilities.

inline constexpr int kMinTraceLevel = 1;
inline constexpr int kMaxTraceLevel = static_cast<int>(Swiftlog::kRings);

/// A set of trace levels: bit L stands for level L.
using TraceLevels = std::uint32_t;
/// The set of the given levels, each from kMinTraceLevel to kMaxTraceLevel.
constexpr TraceLevels traceLevels(std::initializer_list<int> levels) {
  TraceLevels set = 0;
  for (int const level : levels) set |= TraceLevels{1} << static_cast<unsigned>(level);
  return set;
}
inline constexpr TraceLevels kAllTraceLevels = traceLevels({1, 2, 3, 4, 5, 6, 7, 8, 9});

/// Whether a facility's text trace is on, and at which levels. One per facility, kept until the process exits.
class NOX_EXPORT TraceHandle {
 public:
  /// A facility that is off or on at first. What was set from outside for a facility of this name, before or later,
  /// wins.
  TraceHandle(String8 name, bool enabled);
  TraceHandle(TraceHandle const&) = delete;
  TraceHandle& operator=(TraceHandle const&) = delete;
  ~TraceHandle();

  String8 const& name() const { return name_; }
  bool enabled() const { return enabled_; }
  /// The level's own flag, whatever `enabled` says.
  bool levelEnabled(int level) const { return (levels_ >> static_cast<unsigned>(level) & 1U) != 0; }
  /// Whether messages of this level are wanted.
  bool wants(int level) const { return enabled() && levelEnabled(level); }
  bool wantsAny(TraceLevels levels) const { return enabled() && (levels_ & levels) != 0; }

 private:
  friend NOX_EXPORT void traceEnabledIs(std::string_view facility, bool enabled);
  friend NOX_EXPORT void traceLevelsIs(std::string_view facility, TraceLevels levels);

  String8 name_;
  bool enabled_;
  TraceLevels levels_ = 0;
};

/// Switches a facility on or off, whether its handle exists yet or not.
NOX_EXPORT void traceEnabledIs(std::string_view facility, bool enabled);
/// Sets which levels of a facility are on, and that the others are off, whether its handle exists yet or not.
NOX_EXPORT void traceLevelsIs(std::string_view facility, TraceLevels levels);

// Where the text trace goes.

/// One message of the text trace. Everything in it is valid during the call of the sink only.
struct TraceMessage {
  std::string_view facility;
  String8 const& context;
  std::string_view text;
  int level;
  bool enabled;  ///< Whether facility and level are on; otherwise the message is for the coverage stream alone.
  char const* file;
  int line;
  char const* function;
};

/// Receives the messages that are enabled. It may trace, but not replace the sink.
using TraceSink = std::function<void(TraceMessage const&)>;

/// Makes `sink` the receiver of all messages and returns the one before. An empty sink, the one at first, drops them.
NOX_EXPORT TraceSink traceSinkIs(TraceSink sink);

/// If not null, every message is written to it, also of a facility or level that is off. Not owned. One line a message:
/// `<facility> <level> <file>:<line> <function> <1 if enabled, else 0> <text>`, the text as `writeOneLine` writes it.
extern NOX_EXPORT std::ostream* coverageStream_;

/// Whether a statement of this level would leave anything behind in the text channel.
inline bool textTraces(TraceHandle const& handle, int level) {
  return handle.wants(level) || coverageStream_ != nullptr;
}
/// Whether a statement of one of these levels would leave anything behind, in either channel.
inline bool tracesAny(TraceHandle const& handle, TraceLevels levels) {
  return handle.wantsAny(levels) || coverageStream_ != nullptr || Swiftlog::theTraceFile != nullptr;
}

/// Hands a message to the sink if `enabled`, and to the coverage stream if there is one. `text` is read, not changed.
NOX_EXPORT void traceHelper(char const* name, Nox::String8 context, std::stringstream& text, int level, bool enabled,
                            char const* file, int line, char const* function);

// What the macros below expand to.

/// A string stream of precision 12 that is lent out: taken on first use and given back, with its buffer, at the end of
/// the statement. A value that traces while it is printed gets another one.
class NOX_EXPORT ScratchStream {
 public:
  ScratchStream() = default;
  ScratchStream(ScratchStream const&) = delete;
  ScratchStream& operator=(ScratchStream const&) = delete;
  ~ScratchStream() {
    if (stream_ != nullptr) giveBack();
  }
  std::stringstream& stream() {
    if (stream_ == nullptr) take();
    return *stream_;
  }
  std::string_view view() const { return stream_ != nullptr ? stream_->view() : std::string_view(); }

 private:
  void take();
  void giveBack() noexcept;

  std::stringstream* stream_ = nullptr;
};

/// A string literal. A `char` array that can be changed is a value, not a literal.
template <class P>
inline constexpr bool kIsTraceLiteral = false;
template <std::size_t N>
inline constexpr bool kIsTraceLiteral<char const (&)[N]> = true;
template <class P>
concept TraceLiteral = kIsTraceLiteral<P&&>;

/// A number that prints as one, which `char` and its kin do not.
template <class P>
concept TraceInteger = std::integral<P> && !std::same_as<P, bool> && (sizeof(P) > 1);

/// The bytes of a text as they are, an empty view for a null pointer.
inline std::string_view traceText(StringN<unsigned char> const& text) { return text.view(); }
inline std::string_view traceText(char const* text) {
  return text != nullptr ? std::string_view(text) : std::string_view();
}
inline std::string_view traceText(std::string_view text) { return text; }
template <class P>
concept TraceText = std::derived_from<P, StringN<unsigned char>> || std::same_as<P, std::string> ||
    std::same_as<P, std::string_view> || std::convertible_to<P const&, char const*>;

template <class P>
void streamPiece(std::ostream& out, P const& piece) {
  if constexpr (TraceText<P>)
    out << traceText(piece);
  else
    out << piece;
}

/// Passes a statement's text to `traceHelper`, with the context that no statement knows.
NOX_EXPORT void sendText(TraceHandle const& handle, std::stringstream& text, int level, char const* file, int line,
                         char const* function);

template <class... P>
[[gnu::noinline]] void textTrace(TraceHandle const& handle, int level, char const* file, int line, char const* function,
                                 P const&... pieces) {
  ScratchStream scratch;
  std::stringstream& text = scratch.stream();
  (streamPiece(text, pieces), ...);
  sendText(handle, text, level, file, line, function);
}

/// One piece of a message's description: a literal, or the format code of a value.
struct RingPiece {
  char const* literal;
  char const* code;
};
template <TraceLiteral P>
RingPiece ringPiece(P&& literal) {
  return {literal, nullptr};
}
template <class P>
RingPiece ringPiece(P&& /*value*/) {
  return {nullptr, std::same_as<std::remove_cvref_t<P>, bool> ? "b" : "p"};
}

/// One piece's part of a record, made before the record is begun: the printing of a value may itself trace.
class RingValue {
 public:
  template <TraceLiteral P>
  RingValue(P&& /*literal*/, ScratchStream& /*scratch*/) : kind_(Kind::none) {}

  template <class P>
  RingValue(P&& value, ScratchStream& scratch) {
    using T = std::remove_cvref_t<P>;
    if constexpr (std::same_as<T, bool>) {
      kind_ = Kind::flag;
      flag_ = value;
    } else if constexpr (TraceInteger<T>) {
      kind_ = Kind::digits;
      size_ = static_cast<std::size_t>(std::to_chars(digits_.data(), digits_.data() + digits_.size(), value).ptr -
                                       digits_.data());
    } else if constexpr (TraceText<T>) {
      kind_ = Kind::text;
      text_ = traceText(value);
    } else {
      kind_ = Kind::scratch;
      std::size_t const start = scratch.view().size();
      scratch.stream() << value;
      start_ = start;
      size_ = scratch.view().size() - start;
    }
  }

  /// Appends the value to the record; `scratch` is what the values were printed to.
  void put(Swiftlog::RingBuf* ring, std::string_view scratch) const {
    switch (kind_) {
      case Kind::none:
        return;
      case Kind::flag:
        return Swiftlog::put(ring, flag_);
      case Kind::digits:
        return Swiftlog::put(ring, std::string_view(digits_.data(), size_));
      case Kind::text:
        return Swiftlog::put(ring, text_);
      case Kind::scratch:
        return Swiftlog::put(ring, scratch.substr(start_, size_));
    }
  }

 private:
  enum class Kind : unsigned char { none, flag, digits, text, scratch };
  Kind kind_;
  bool flag_ = false;
  std::array<char, 20> digits_;  ///< Room for every 64-bit number with its sign.
  std::size_t start_ = 0;
  std::size_t size_ = 0;
  std::string_view text_;
};

/// Describes a message in `file`, keeps its id in `cell`, and has the file reset the cell when it is closed.
NOX_EXPORT void describeMessage(Swiftlog::TraceFile* file, int& cell, char const* sourceFile, int line,
                                std::initializer_list<RingPiece> pieces);

template <class... P>
[[gnu::noinline]] void ringTrace(int& cell, int level, char const* sourceFile, int line, P&&... pieces) {
  Swiftlog::TraceFile* const file = Swiftlog::theTraceFile;
  ScratchStream scratch;
  RingValue const values[] = {RingValue(pieces, scratch)...};
  if (cell == 0) describeMessage(file, cell, sourceFile, line, {ringPiece(pieces)...});
  Swiftlog::RingBuf* const ring = file->ringBuf(static_cast<unsigned>(level - 1));
  ring->startMsg(file, cell);
  for (RingValue const& value : values) value.put(ring, scratch.view());
  ring->endMsg();
}

}  // namespace Nox

// The statements. HANDLE yields the facility's TraceHandle, FILE is the source file's name and LINE the message's tag,
// a constant: both are part of the message, whatever file and line the statement stands in. The pieces are string
// literals and values; the values of a statement are evaluated once for each channel that is on.

/// Text channel, from the function in which the statement stands.
#define NOX_TRACE_TEXT(HANDLE, FILE, LEVEL, LINE, ...) \
  NOX_TRACE_TEXT_IN(HANDLE, FILE, __func__, LEVEL, LINE, __VA_ARGS__)

/// Text channel, from the function of that name, of which the one where the statement stands is a part.
#define NOX_TRACE_TEXT_IN(HANDLE, FILE, FUNCTION, LEVEL, LINE, ...)                                        \
  do {                                                                                                     \
    static_assert((LEVEL) >= ::Nox::kMinTraceLevel && (LEVEL) <= ::Nox::kMaxTraceLevel, "no trace level"); \
    if (::Nox::textTraces((HANDLE), (LEVEL))) [[unlikely]]                                                 \
      ::Nox::textTrace((HANDLE), (LEVEL), (FILE), (LINE), (FUNCTION), __VA_ARGS__);                        \
  } while (false)

/// Ring-buffer channel. The id cell is 0 until the message has been described.
#define NOX_TRACE_RING(FILE, LEVEL, LINE, ...)                                                             \
  do {                                                                                                     \
    static_assert((LEVEL) >= ::Nox::kMinTraceLevel && (LEVEL) <= ::Nox::kMaxTraceLevel, "no trace level"); \
    static int noxMessageId = 0;                                                                           \
    if (::Swiftlog::theTraceFile != nullptr) [[unlikely]]                                                  \
      ::Nox::ringTrace(noxMessageId, (LEVEL), (FILE), (LINE), __VA_ARGS__);                                \
  } while (false)

/// Both channels, the text first.
#define NOX_TRACE(HANDLE, FILE, LEVEL, LINE, ...)           \
  do {                                                      \
    NOX_TRACE_TEXT(HANDLE, FILE, LEVEL, LINE, __VA_ARGS__); \
    NOX_TRACE_RING(FILE, LEVEL, LINE, __VA_ARGS__);         \
  } while (false)
