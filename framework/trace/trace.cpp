// The facilities, the sink and the coverage stream of the text trace.
#include "framework/trace/trace.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "framework/text/one_line.h"

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
