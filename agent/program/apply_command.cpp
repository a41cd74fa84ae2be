// `enrolix apply`: sends scenarios and trees piece by piece, and finds the refused line in its file again.
#include <algorithm>
#include <vector>

#include "agent/client/failure.h"
#include "agent/client/requests.h"
#include "agent/document/input_error.h"
#include "agent/document/scenario_pieces.h"
#include "agent/program/client_commands.h"
#include "agent/program/tree_file.h"
#include "agent/view/tree_text.h"

namespace Agent {
namespace {

/// Lines of one file within what is sent.
struct Part {
  std::string file;
  std::size_t firstLine = 1;
  std::size_t lines = 0;
};

/// What is sent at once.
struct Portion {
  std::string text;
  std::vector<Part> parts;

  void add(std::string const& file, ScenarioPiece const& piece) {
    text += piece.text;
    parts.push_back({file, piece.firstLine, piece.lines});
  }
};

/// "FILE:LINE: " for a line of what was sent; as much of it as is known.
std::string linePrefix(Portion const& portion, std::optional<std::uint64_t> line) {
  for (Part const& part : portion.parts) {
    if (!line) break;
    if (*line <= part.lines) return printable(part.file) + ":" + std::to_string(part.firstLine + *line - 1) + ": ";
    *line -= part.lines;
  }
  bool const isOneFile = std::all_of(
      portion.parts.begin(), portion.parts.end(), [&](Part const& part) { return part.file == portion.parts[0].file; });
  return isOneFile && !portion.parts.empty() ? printable(portion.parts[0].file, portion.parts[0].file.size()) + ": "
                                             : "";
}

class Sender {
 public:
  Sender(ApplyOptions const& options, ClientSurroundings const& surroundings)
      : options_(options),
        connection_(surroundings.connect(options.common)),
        condition_(options.ifMatch),
        target_(options.isAtomic ? "/v1/tree?atomic=1" : "/v1/tree") {
    if (options.timeToLive) target_ += (options.isAtomic ? "&ttl=" : "?ttl=") + *options.timeToLive;
  }

  void send(Portion const& portion) {
    HttpRequest request = makeRequest("POST", target_, condition_);
    request.fields.emplace_back("Content-Type", "application/jsonl");
    request.body = portion.text;
    HttpResponse const response = connection_.request(request);
    if (response.status >= 400) {
      Refusal const refusal = readRefusal(response);
      throw ClientFailure(failureKind(refusal), linePrefix(portion, refusal.line) + refusalText(refusal));
    }
    requireSuccess(response);
    understanding([&] {
      Json const answer = readJson(response.body);
      applied_ += answer.at("applied").get_ref<Json::number_unsigned_t const&>();
      revision_ = answer.at("revision").get_ref<Json::number_unsigned_t const&>();
    });
    isSent_ = true;
    // Between the pieces, too, no other client may have changed anything.
    if (condition_) condition_ = revision_;
  }

  bool isSent() const { return isSent_; }

  /// Of trees, so many documents more were not sent.
  void leaveOut(std::size_t count) { leftOut_ += count; }

  std::string summary() const {
    if (options_.common.format == OutputFormat::kJson) {
      Json line = {{"applied", applied_}, {"revision", revision_}};
      if (options_.isTree) line["leftOut"] = leftOut_;
      return jsonLine(line);
    }
    std::string const what = options_.isTree ? "document" : "operation";
    std::string const rest =
        options_.isTree ? ", " + std::to_string(leftOut_) + " of the registry's own left out" : std::string();
    return std::to_string(applied_) + " " + what + (applied_ == 1 ? "" : "s") + " applied" + rest + ", revision " +
           std::to_string(revision_) + "\n";
  }

 private:
  ApplyOptions const& options_;
  Connection connection_;
  IfMatch condition_;
  std::string target_;
  std::uint64_t applied_ = 0;
  std::uint64_t revision_ = 0;
  std::size_t leftOut_ = 0;
  bool isSent_ = false;
};

/// Sends the scenarios, or the trees, and what is left at the end if all is one turn.
class Application {
 public:
  Application(ApplyOptions const& options, Sender& sender) : options_(options), sender_(sender) {}

  void run() {
    for (std::string const& file : options_.files) options_.isTree ? addTree(file) : addScenario(file);
    // Empty files, too, have an answer: the revision that stands.
    if (options_.isAtomic || !sender_.isSent()) send();
  }

 private:
  void addScenario(std::string const& file) {
    ScenarioPieces pieces(openScenario(file));
    try {
      while (auto const piece = pieces.next()) {
        portion_.add(file, *piece);
        if (!options_.isAtomic) send();
      }
    } catch (InputError const& error) {
      throw ClientFailure(FailureKind::kRefused, errorLine(file, pieces.line(), error));
    }
  }

  void addTree(std::string const& file) {
    constexpr PieceLimits kLimits;
    TreeFile const tree(file);
    tree.forEach([&](TreeFile::Input const& input) {
      bool const isFull =
          portion_.parts.size() == kLimits.lines || portion_.text.size() + input.text.size() > kLimits.bytes;
      if (isFull && !portion_.parts.empty() && !options_.isAtomic) send();
      portion_.add(file, {input.text, input.line, 1});
    });
    sender_.leaveOut(tree.leftOut());
    if (!options_.isAtomic && !portion_.parts.empty()) send();
  }

  void send() {
    sender_.send(portion_);
    portion_ = {};
  }

  ApplyOptions const& options_;
  Sender& sender_;
  Portion portion_;
};

}  // namespace

ExitCode runCommand(ApplyOptions const& options, ClientSurroundings const& surroundings) {
  Sender sender(options, surroundings);
  Application(options, sender).run();
  surroundings.print(sender.summary());
  return ExitCode::kDone;
}

}  // namespace Agent
