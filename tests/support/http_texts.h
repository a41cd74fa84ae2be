// Requests as their bytes, and handlers and limits for a server under test.
#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "agent/net/http.h"
#include "agent/net/http_server.h"

namespace Test {

inline Agent::HttpResponse text(std::string body) {
  Agent::HttpResponse response;
  response.body = std::move(body);
  return response;
}

// Answers with what was asked.
inline void echo(Agent::HttpRequest const& request, Agent::HttpAnswer const& answer) {
  answer(text(request.method + " " + request.target + " " + request.body));
}

// More than a connection takes without being read.
inline std::string longText() {
  std::string text;
  text.resize(20'000'000, 'x');
  return text;
}

inline Agent::HttpLimits smallLimits() {
  Agent::HttpLimits limits;
  limits.bodyBytes = 1000;
  limits.headerBytes = 500;
  limits.idle = std::chrono::milliseconds(200);
  return limits;
}

inline std::string get(std::string const& target, std::string const& fields = "") {
  return "GET " + target + " HTTP/1.1\r\nHost: here\r\n" + fields + "\r\n";
}

inline std::string put(std::string const& target, std::string const& body) {
  return "PUT " + target + " HTTP/1.1\r\nHost: here\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

inline std::string chunked(std::string const& chunks, std::string const& fields = "") {
  return "PUT /a HTTP/1.1\r\nHost: here\r\nTransfer-Encoding: chunked\r\n" + fields + "\r\n" + chunks;
}

}  // namespace Test
