// The surroundings of a client command: a server that answers what it is told to, and what the command made of it.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "agent/net/http_client.h"
#include "agent/program/client_commands.h"

namespace Agent {

/// One scripted answer. The pieces of a stream are given one by one; `breaks` ends it as a broken connection does.
struct Scripted {
  int status = 200;
  HttpFields fields;
  std::vector<std::string> pieces;
  bool breaks = false;
};

/// ClientWorld world; world.answer(200, "{}"); world.run(GetOptions{…}); EXPECT_EQ(world.printed, …);
class ClientWorld {
 public:
  void answer(int status, std::string const& body, std::string const& revision = "7") {
    answers.push_back({status, {{"Enrolix-Revision", revision}}, {body}, false});
  }
  void refuse(int status, std::string const& error) { answer(status, "{\"error\": " + error + "}"); }
  void stream(std::vector<std::string> pieces, std::string const& revision = "7", bool breaks = false) {
    answers.push_back({200, {{"Enrolix-Revision", revision}}, std::move(pieces), breaks});
  }

  ClientSurroundings surroundings() {
    ClientSurroundings result;
    result.connect = [this](ClientCommonOptions const& options) {
      if (options.server == "nonsense") throw std::invalid_argument("expected http://HOST:PORT");
      Connection connection;
      connection.request = [this](HttpRequest const& request) {
        Scripted const scripted = take(request);
        if (scripted.breaks) throw HttpError("server:1: broken");
        HttpResponse response;
        response.status = scripted.status;
        response.fields = scripted.fields;
        for (std::string const& piece : scripted.pieces) response.body += piece;
        return response;
      };
      connection.stream = [this](auto const& request, auto const& begun, auto const& piece) {
        Scripted const scripted = take(request);
        HttpResponse head;
        head.status = scripted.status;
        head.fields = scripted.fields;
        if (!begun(head)) return false;
        for (std::string const& text : scripted.pieces)
          if (!piece(text)) return false;
        if (scripted.breaks) throw HttpError("server:1: broken");
        return true;
      };
      return connection;
    };
    result.print = [this](std::string_view text) { printed += text; };
    result.note = [this](std::string_view line) { notes.emplace_back(line); };
    result.sleep = [this](std::chrono::milliseconds time) {
      sleeps.push_back(time.count());
      return sleeps.size() < 20;
    };
    result.now = [] { return ClientSurroundings::Clock::time_point(); };
    result.isTerminal = isTerminal;
    result.areColoursWelcome = areColoursWelcome;
    return result;
  }

  template <class Options>
  int run(Options const& options) {
    return runClient(options, surroundings());
  }

  /// The request line and, behind it, If-Match and Last-Event-ID if they are there.
  std::string asked(std::size_t index) const {
    HttpRequest const& request = requests.at(index);
    std::string text = request.method + " " + request.target;
    for (auto const& [name, value] : request.fields)
      if (name == "If-Match" || name == "Last-Event-ID") text += " " + name + ": " + value;
    return text;
  }

  std::deque<Scripted> answers;
  std::vector<HttpRequest> requests;
  std::string printed;
  std::vector<std::string> notes;
  std::vector<long> sleeps;
  bool isTerminal = false;
  bool areColoursWelcome = true;

 private:
  Scripted take(HttpRequest const& request) {
    requests.push_back(request);
    if (answers.empty()) throw HttpError("server:1: no connection");
    Scripted scripted = answers.front();
    answers.pop_front();
    return scripted;
  }
};

}  // namespace Agent
