// The facilities, the sink and the coverage stream of the text trace.
#include "framework/trace.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace Nox {

std::ostream* coverageStream_ = nullptr;

namespace {

/// What was set from outside for a facility, and the handles that follow it.
struct Facility {
  std::optional<bool> enabled;
  TraceLevels levels = 0;
  std::vector<TraceHandle*> handles;
};

Facility& settingsOf(std::string_view facility) {
  static std::map<std::string, Facility, std::less<>> facilities;
  if (auto const known = facilities.find(facility); known != facilities.end()) return known->second;
  return facilities[std::string(facility)];
}

TraceSink theSink;

/// Whether the byte at `i` is a control character, or part of one of those that UTF-8 writes as 0xC2 and a byte from
/// 0x80 to 0x9F.
bool isControl(std::string_view text, std::size_t i) {
  auto const byteAt = [text](std::size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U; };
  unsigned const byte = byteAt(i);
  auto const isTail = [](unsigned tail) { return tail >= 0x80 && tail < 0xA0; };
  return byte < 0x20 || byte == 0x7F || (byte == 0xC2 && isTail(byteAt(i + 1))) ||
         (isTail(byte) && i > 0 && byteAt(i - 1) == 0xC2);
}

/// The streams that are not lent out. There are as many as ever were lent out at once.
std::vector<std::unique_ptr<std::stringstream>> spareStreams;
std::size_t streamsMade = 0;

}  // namespace

TraceHandle::TraceHandle(String8 name, bool enabled) : name_(std::move(name)), enabled_(enabled) {
  Facility& settings = settingsOf(name_.view());
  enabled_ = settings.enabled.value_or(enabled);
  levels_ = settings.levels;
  settings.handles.push_back(this);
}

TraceHandle::~TraceHandle() { std::erase(settingsOf(name_.view()).handles, this); }

void traceEnabledIs(std::string_view facility, bool enabled) {
  Facility& settings = settingsOf(facility);
  settings.enabled = enabled;
  for (TraceHandle* const handle : settings.handles) handle->enabled_ = enabled;
}

void traceLevelsIs(std::string_view facility, TraceLevels levels) {
  Facility& settings = settingsOf(facility);
  settings.levels = levels;
  for (TraceHandle* const handle : settings.handles) handle->levels_ = levels;
}

TraceSink traceSinkIs(TraceSink sink) { return std::exchange(theSink, std::move(sink)); }

void traceHelper(char const* name, Nox::String8 context, std::stringstream& text, int level, bool enabled,
                 char const* file, int line, char const* function) {
  if (enabled && theSink) theSink(TraceMessage{name, context, text.view(), level, enabled, file, line, function});
  if (coverageStream_ == nullptr) return;
  std::ostream& out = *coverageStream_;
  out << name << ' ' << level << ' ' << file << ':' << line << ' ' << function << ' ' << (enabled ? '1' : '0') << ' ';
  writeOneLine(out, text.view());
  out << '\n';
}

void sendText(TraceHandle const& handle, std::stringstream& text, int level, char const* file, int line,
              char const* function) {
  static String8 const context("<unknown>");
  traceHelper(handle.name().charPtr(), context, text, level, handle.wants(level), file, line, function);
}

void writeOneLine(std::ostream& out, std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::size_t plain = 0;  // start of what is not written yet
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!isControl(text, i)) continue;
    out << text.substr(plain, i - plain) << '\\';
    plain = i + 1;
    auto const byte = static_cast<unsigned char>(text[i]);
    switch (byte) {
      case '\n':
        out << 'n';
        break;
      case '\r':
        out << 'r';
        break;
      case '\t':
        out << 't';
        break;
      default:
        out << 'x' << kDigits[byte >> 4U] << kDigits[byte & 0xFU];
    }
  }
  out << text.substr(plain);
}

void ScratchStream::take() {
  if (spareStreams.empty()) {
    // Room for every stream there is, so that giving back never fails.
    spareStreams.reserve(streamsMade + 1);
    spareStreams.push_back(std::make_unique<std::stringstream>());
    ++streamsMade;
  }
  stream_ = spareStreams.back().release();
  spareStreams.pop_back();
  stream_->precision(12);
}

void ScratchStream::giveBack() noexcept {
  // Back as it was made: empty, without whatever a value's printing has left behind.
  static std::string const empty;
  stream_->str(empty);  // copies, and so leaves the buffer its size
  stream_->clear();
  stream_->flags(std::ios_base::skipws | std::ios_base::dec);
  stream_->fill(' ');
  stream_->width(0);
  spareStreams.emplace_back(stream_);
}

void describeMessage(Swiftlog::TraceFile* file, int& cell, char const* sourceFile, int line,
                     std::initializer_list<RingPiece> pieces) {
  Swiftlog::MsgDesc description(file, sourceFile, line);
  for (RingPiece const& piece : pieces) {
    if (piece.literal != nullptr) {
      description << piece.literal;
      continue;
    }
    Swiftlog::MsgFormatString format;
    format.put(piece.code);
    description << Swiftlog::Varg(format);
  }
  description.finish();
  cell = description.id();
  file->msgIdArrIs(&cell);
}

}  // namespace Nox
