// Answers that the HTTP client reads: any bytes are the same answer in whatever pieces they come, or no answer, which
// is told in one line.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <thread>

#include "agent/net/http_client.h"
#include "fuzz/fuzz.h"

namespace {

/// Gives each of its clients some bytes, so many at a time, when it has asked.
class Impostor {
 public:
  Impostor() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const where = reinterpret_cast<sockaddr*>(&address);
    bool const listens = ::bind(listener_, where, size) == 0 && ::listen(listener_, 10) == 0 &&
                         ::getsockname(listener_, where, &size) == 0;
    Fuzz::require(listens, "there is a socket to listen on");
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  }

  std::string const& url() const { return url_; }

  /// Does `work`, in which one client connects.
  template <class Work>
  auto answering(std::string_view text, std::size_t step, Work const& work) {
    std::jthread const server([this, text, step] { serve(text, step); });
    return work();
  }

 private:
  void serve(std::string_view text, std::size_t step) const {
    int const connection = ::accept(listener_, nullptr, nullptr);
    std::string asked;
    char byte = 0;
    while (!asked.ends_with("\r\n\r\n") && ::recv(connection, &byte, 1, 0) == 1) asked += byte;
    for (; !text.empty(); text.remove_prefix(std::min(step, text.size())))
      ::send(connection, text.data(), std::min(step, text.size()), MSG_NOSIGNAL);
    ::shutdown(connection, SHUT_WR);
    while (::recv(connection, &byte, 1, 0) == 1) continue;
    ::close(connection);
  }

  int const listener_;
  std::string url_;
};

std::string textOf(Agent::HttpResponse const& head) {
  std::string text = std::to_string(head.status) + "\n";
  for (auto const& [name, value] : head.fields) text += name + ": " + value + "\n";
  return text;
}

/// What a client makes of an answer; nothing if it is none.
template <class Ask>
std::optional<std::string> answerTo(Ask const& ask, std::string_view text, std::size_t step) {
  static Impostor impostor;
  return impostor.answering(text, step, [&]() -> std::optional<std::string> {
    Agent::HttpClient client(impostor.url());
    try {
      return ask(client);
    } catch (Agent::HttpError const& error) {
      Fuzz::requireOneLine(error.what());
      Fuzz::require(std::string_view(error.what()).starts_with(impostor.url() + ": "), "an error names the server");
      return std::nullopt;
    }
  });
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Fuzz::Bytes input(Fuzz::textOf(data, size));
  Agent::HttpRequest const request{input.number(1) % 4 == 0 ? "HEAD" : "GET", "/", {}, "", false};
  std::string_view const text = input.rest();
  auto const whole = answerTo(
      [&](Agent::HttpClient& client) {
        Agent::HttpResponse const answer = client.request(request);
        return textOf(answer) + answer.body;
      },
      text,
      size + 1);
  auto const streamed = answerTo(
      [&](Agent::HttpClient& client) {
        std::string told;
        auto const begun = [&](Agent::HttpResponse const& head) { return told.append(textOf(head)), true; };
        auto const piece = [&](std::string_view bytes) { return told.append(bytes), true; };
        Fuzz::require(client.stream(request, begun, piece), "a body that is not refused comes to its end");
        return told;
      },
      text,
      7);
  Fuzz::require(
      whole == streamed, "an answer is the same in any pieces", whole.value_or("none") + streamed.value_or("none"));
  return 0;
}
