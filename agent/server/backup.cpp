// Goes through the documents that stand and those that stood, whichever path comes first.
#include "agent/server/backup.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "agent/document/json_reader.h"
#include "agent/server/text_in_pieces.h"
#include "agent/store/backup_reader.h"
#include "agent/store/document_digest.h"

namespace Agent {

/// Ends the line of a document, behind its text.
static constexpr std::string_view kEntryEnd = "}\n";
/// So much may all copies keep of what stood before.
static constexpr std::size_t kStoodBytes = std::size_t{256} * 1024 * 1024;

/// With what an entry of a map takes.
static std::size_t bytesOf(std::string const& path, std::optional<Document> const& document) {
  return 256 + path.size() + (document ? document->text->size() : 0);
}

/// One copy.
class Backup final : public BodySource {
 public:
  Backup(std::shared_ptr<BackupHub> hub, HistoryId history)
      : hub_(std::move(hub)), history_(std::move(history)), revision_(hub_->documents_->revision) {
    hub_->copies_.insert(this);
  }
  ~Backup() override { hub_->copies_.erase(this); }

  std::optional<std::string> next() override;
  void changed(DocumentBefore const& before) {
    bool const isAhead = !isTooSlow_ && (!told_ || before.path > *told_);
    if (isAhead && stood_.try_emplace(before.path, before.document).second)
      stoodBytes_ += bytesOf(before.path, before.document);
  }
  std::size_t stoodBytes() const { return stoodBytes_; }
  void giveUp() {
    isTooSlow_ = true;
    stood_.clear();
    stoodBytes_ = 0;
  }

 private:
  bool tellNext(std::string& to);
  void tell(std::string& to, std::string const& path, Document const& document);

  std::shared_ptr<BackupHub> hub_;
  HistoryId history_;
  Revision revision_;
  bool isBegun_ = false;
  bool isEnded_ = false;
  /// The path behind which it goes on.
  std::optional<std::string> told_;
  /// What stood at paths behind that one when the copy began, where it has changed since.
  std::map<std::string, std::optional<Document>, std::less<>> stood_;
  std::size_t stoodBytes_ = 0;
  bool isTooSlow_ = false;
  /// A document that is being told, and how much of it has been: a long one is shared by its readers, however slow they
  /// are, and not copied for each.
  TextInPieces text_;
  std::uint64_t count_ = 0;
  RunningChecksum checksum_;
};

std::optional<std::string> Backup::next() {
  if (isEnded_) return std::nullopt;
  if (hub_->documents_ == nullptr) throw std::runtime_error("the state was replaced by another one");
  if (isTooSlow_) throw std::runtime_error("the state changes faster than the copy is read");
  std::string piece;
  if (!std::exchange(isBegun_, true))
    piece =
        Json{{"enrolix", "backup"}, {"format", kBackupFormat}, {"history", history_}, {"revision", revision_}}.dump() +
        "\n";
  while (piece.size() < kPieceBytes && !isEnded_) isEnded_ = !tellNext(piece);
  checksum_.add(piece);
  if (isEnded_) piece += Json{{"documents", count_}, {"checksum", checksum_.value().text()}}.dump() + "\n";
  return piece;
}

// Goes on with the document that has begun, or to the next path, and tells what stood there; false if there is none.
bool Backup::tellNext(std::string& to) {
  if (text_.isTelling()) {
    text_.goOn(to, kEntryEnd);
    return true;
  }
  Documents const& documents = hub_->documents_->documents;
  auto const stands = told_ ? documents.upper_bound(*told_) : documents.begin();
  auto const stood = stood_.begin();
  if (stood != stood_.end() && (stands == documents.end() || stood->first <= stands->first)) {
    told_ = stood->first;
    if (stood->second) tell(to, stood->first, *stood->second);
    stoodBytes_ -= bytesOf(stood->first, stood->second);
    stood_.erase(stood);
    return true;
  }
  if (stands == documents.end()) return false;
  told_ = stands->first;
  tell(to, stands->first, stands->second);
  return true;
}

void Backup::tell(std::string& to, std::string const& path, Document const& document) {
  ++count_;
  to += "{\"path\":" + Json(path).dump() + ",\"revision\":" + std::to_string(document.revision);
  if (document.timeToLive) to += ",\"ttl\":" + std::to_string(document.timeToLive->count());
  to += ",\"value\":";
  text_.begin(document.text, to, kEntryEnd, hub_->heldTexts_);
}

void BackupHub::changed(std::span<DocumentBefore const> before) {
  for (Backup* const copy : copies_)
    for (DocumentBefore const& one : before) copy->changed(one);
  auto const isSmaller = [](Backup const* left, Backup const* right) {
    return left->stoodBytes() < right->stoodBytes();
  };
  auto const all = [&] {
    std::size_t bytes = 0;
    for (Backup const* const copy : copies_) bytes += copy->stoodBytes();
    return bytes;
  };
  while (all() > kStoodBytes) (*std::max_element(copies_.begin(), copies_.end(), isSmaller))->giveUp();
}

void BackupHub::detach() { documents_ = nullptr; }

std::unique_ptr<BodySource> BackupHub::copy(HistoryId const& history) {
  return std::make_unique<Backup>(shared_from_this(), history);
}

}  // namespace Agent
