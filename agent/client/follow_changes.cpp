// Makes watches anew behind the last id that was seen.
#include "agent/client/follow_changes.h"

#include <algorithm>
#include <string_view>

#include "agent/client/failure.h"
#include "agent/client/requests.h"
#include "agent/document/json_reader.h"
#include "agent/document/number.h"
#include "agent/net/server_event_reader.h"

namespace Agent {
namespace {

using std::chrono::milliseconds;

class Feed {
 public:
  Feed(Connection const& connection, FollowRequest const& request,
       std::function<bool(FollowedEvent const&)> const& take)
      : connection_(connection), request_(request), take_(take) {}

  void run() {
    constexpr milliseconds kShortest(200);
    constexpr milliseconds kLongest(5000);
    milliseconds pause = kShortest;
    while (!isDone_) {
      wasHeard_ = false;
      std::string const reason = watchOnce();
      if (isDone_) return;
      if (!wasConnected_) throw HttpError(reason);
      // Said once for each break, however long it lasts.
      if (wasHeard_) request_.note(reason + "; trying again");
      if (wasHeard_) pause = kShortest;
      if (!request_.sleep(pause)) return;
      pause = std::min(pause * 2, kLongest);
    }
  }

 private:
  // One connection until it ends; returns why it did.
  std::string watchOnce() {
    stream_ = ServerEventReader();
    std::string refusal;
    std::function<bool(std::string_view)> read = [this](std::string_view piece) { return feed(piece); };
    auto const begun = [&](HttpResponse const& head) {
      if (head.status == 200) return begin(head);
      // The words of the refusal are in the body.
      read = [&refusal](std::string_view piece) {
        refusal += piece;
        return true;
      };
      status_ = head.status;
      return true;
    };
    status_ = 200;
    try {
      connection_.stream(makeWatch(), begun, [&](std::string_view piece) { return read(piece); });
    } catch (HttpError const& error) {
      return error.what();
    } catch (EventTooLong const& error) {
      throw ClientFailure(FailureKind::kNoAnswer, error.what());
    }
    if (status_ == 200) return isShutdown_ ? "the server stops" : "the server ended the watch";
    HttpResponse response;
    response.status = status_;
    response.body = refusal;
    bool const isPassing = status_ == 429 || status_ == 503;
    if (!isPassing || !wasConnected_) requireSuccess(response);
    return refusalText(readRefusal(response));
  }

  HttpRequest makeWatch() const {
    std::string target = "/v1/watch?prefix=" + queryValue(request_.prefix);
    if (request_.after) target += "&after=" + queryValue(*request_.after);
    HttpRequest watch = makeRequest("GET", target);
    watch.fields.emplace_back("Accept", "text/event-stream");
    if (lastId_) watch.fields.emplace_back("Last-Event-ID", *lastId_);
    return watch;
  }

  bool begin(HttpResponse const& head) {
    std::uint64_t const revision = revisionOf(head);
    isShutdown_ = false;
    wasHeard_ = true;
    if (!wasConnected_) {
      wasConnected_ = true;
      goal_ = revision;
      std::string const now = std::to_string(revision);
      auto const history = findField(head.fields, "Enrolix-History");
      std::string const id = history ? now + "@" + std::string(*history) : now;
      // From now on is behind this revision, whatever happens to the connection and to the server's state.
      if (!request_.after) lastId_ = id;
      // Behind 0 there is what stood at the start, also where there was no turn yet.
      bool const isLast = request_.after == id || (request_.after == now && revision > 0);
      if (!request_.after || isLast) reach(revision);
    }
    return !isEnough();
  }

  bool feed(std::string_view piece) {
    bool const goesOn = stream_.feed(piece, [this](ServerEvent const& event) {
      tell(event);
      readId();
      return !isDone_;
    });
    readId();
    return goesOn && !isEnough();
  }

  void readId() {
    if (stream_.lastId().empty() || isDone_) return;
    std::string const& text = stream_.lastId();
    std::uint64_t revision = 0;
    if (!readNumber(std::string_view(text).substr(0, text.find('@')), revision))
      throw ClientFailure(FailureKind::kNoAnswer, "the server's answer cannot be understood: an id is no revision");
    lastId_ = text;
    reach(revision);
  }

  void tell(ServerEvent const& event) {
    using Kind = FollowedEvent::Kind;
    FollowedEvent told;
    if (event.name == "change")
      told.kind = Kind::kChange;
    else if (event.name == "resync")
      told.kind = Kind::kResync;
    else if (event.name == "synced")
      told.kind = Kind::kSynced;
    else if (event.name == "shutdown")
      told.kind = Kind::kShutdown;
    else
      return;  // a later server may tell more
    isShutdown_ = told.kind == Kind::kShutdown;
    understanding([&] {
      Json data = readJson(event.data);
      if (told.kind != Kind::kShutdown) told.revision = data.at("revision").get_ref<Json::number_unsigned_t const&>();
      if (told.kind == Kind::kChange) {
        told.path = data.at("path").get<std::string>();
        told.value = std::move(data.at("value"));
      }
    });
    if (!take_(told)) isDone_ = true;
  }

  void reach(std::uint64_t revision) {
    if (!goal_ || revision < *goal_ || isDone_) return;
    goal_.reset();
    FollowedEvent caughtUp;
    caughtUp.kind = FollowedEvent::Kind::kCaughtUp;
    caughtUp.revision = revision;
    if (!take_(caughtUp)) isDone_ = true;
  }

  bool isEnough() {
    if (!isDone_ && request_.isEnough && request_.isEnough()) isDone_ = true;
    return isDone_;
  }

  Connection const& connection_;
  FollowRequest const& request_;
  std::function<bool(FollowedEvent const&)> const& take_;
  ServerEventReader stream_;
  int status_ = 200;
  std::optional<std::string> lastId_;
  /// The revision that the server had when the watch began, until it is reached.
  std::optional<std::uint64_t> goal_;
  bool wasConnected_ = false;
  bool wasHeard_ = false;
  bool isShutdown_ = false;
  bool isDone_ = false;
};

}  // namespace

void followChanges(Connection const& connection, FollowRequest const& request,
                   std::function<bool(FollowedEvent const& event)> const& take) {
  Feed(connection, request, take).run();
}

}  // namespace Agent
