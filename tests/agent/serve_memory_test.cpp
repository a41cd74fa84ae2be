// What connections cost the running program in memory, whatever their clients do.
#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <string>

#include "support/raw_connection.h"
#include "support/served.h"

namespace Agent::ServeMemoryTest {
namespace {

using Test::Api;
using Test::RawConnection;
using Test::Served;

/// What docs/serving.md says of a connection.
constexpr std::size_t kMostOfOne = std::size_t{68 + 4 * 16} * 1024;

// A sanitizer keeps for a while what was freed.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsMeasured = false;
#else
constexpr bool kIsMeasured = true;
#endif
/// Enough that what the program has in any case does not count.
constexpr std::size_t kClients = kIsMeasured ? 300 : 30;

/// What each of many connections that send `request`, and read nothing, costs at most.
std::size_t costOfOne(std::string const& request) {
  Served const served({"--memory", "--max-watches", "1000"});
  for (int count = 0; count < 2; ++count)
    Api(served).put("registration/a/n" + std::to_string(count), '"' + std::string(500'000, 'x') + '"');
  std::size_t const before = served.residentBytes();
  std::deque<RawConnection> clients;
  for (std::size_t client = 0; client < kClients; ++client)
    clients.emplace_back(served.port(), 4096).send("GET " + request);
  // Behind what all of them have sent.
  for (int round = 0; round < 20; ++round) EXPECT_EQ(Api(served).send("GET", "/readyz").status, 200);
  std::size_t const after = served.residentBytes();
  return after > before ? (after - before) / kClients : 0;
}

TEST(ServeMemory, AConnectionCostsNoMoreThanItsShare) {
  std::string const fields = " HTTP/1.1\r\nHost: localhost\r\n";
  std::string tiny = fields;
  for (int field = 0; field < 98; ++field) tiny += "a:\r\n";
  std::string const large = fields + "a: " + std::string(16'000, 'x');
  std::string const end = fields + "\r\n";
  for (std::string const& request : {
           std::string(),
           "/readyz" + tiny,
           "/readyz" + large,
           "/v1/tree" + end,
           "/v1/tree/registration/a/n1" + end,
           "/v1/watch?after=0" + end,
           "/v1/tree" + end + std::string(150'000, 'x'),
       }) {
    std::size_t const cost = costOfOne(request);
    std::printf(
        "%6zu bytes: \"GET %s\", %zu bytes\n", cost, request.substr(0, request.find(' ')).c_str(), request.size());
    if (kIsMeasured) {
      EXPECT_LE(cost, kMostOfOne) << request.substr(0, 100);
    }
  }
}

}  // namespace
}  // namespace Agent::ServeMemoryTest
