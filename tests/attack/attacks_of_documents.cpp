// Attackers that send what the service takes, as much of it as it takes.
#include <array>
#include <csignal>

#include "bench/serve_network.h"
#include "tests/attack/attacks.h"
#include "tests/attack/payloads.h"
#include "tests/attack/responses.h"

namespace Attack {
namespace {

std::string const kBatch = "/v1/tree?ttl=0";
std::string const kAtomicBatch = "/v1/tree?ttl=0&atomic=1";

std::string notePath(std::size_t client) { return "registration/spine-" + std::to_string(client) + "/note"; }

/// Alternates between two texts, which are made once.
void alternate(Assault& assault, std::array<std::string, 2> const& requests) {
  repeat(assault, [&](std::size_t i) { return requests[i % 2]; });
}

/// A switch of the attacker's own, which is ready; its number.
std::size_t enrolOne(Assault& assault, std::size_t client) {
  std::size_t const index = assault.switches + 100'000 + client;
  Wire wire(assault);
  wire.send(request("POST", kBatch, enrolmentLines(index, 1)));
  wire.answer();
  return index;
}

/// Sends by turns what takes the attacker's network away and what brings it back.
void exchange(Assault& assault, std::string const& target) {
  alternate(assault,
            {request("POST", target, enrolmentLines(assault.switches, assault.switches)),
             request("POST", target, leavingLines(assault.switches, assault.switches))});
}

}  // namespace

void putFlatNumbers(Assault& assault, std::size_t client) {
  std::size_t const values = assault.sized(65'536, 4'096);
  repeat(assault, [&](std::size_t i) { return putRequest(notePath(client), flatNumbers(values, i)); });
}

void putNestedObjects(Assault& assault, std::size_t client) {
  std::size_t const values = assault.sized(65'536, 4'096);
  repeat(assault, [&](std::size_t i) { return putRequest(notePath(client), nestedObjects(values, i)); });
}

void putLongText(Assault& assault, std::size_t client) {
  std::size_t const bytes = assault.sized(1'048'576, 65'536);
  repeat(assault, [&](std::size_t i) { return putRequest(notePath(client), longText(bytes, i)); });
}

void putServices(Assault& assault, std::size_t client) {
  std::size_t const index = enrolOne(assault, client);
  std::size_t const services = assault.sized(13'000, 300);
  repeat(assault,
         [&](std::size_t i) { return putRequest(ServeLoad::configPath(index), configOf(services, index, i + 2)); });
}

void putMounts(Assault& assault, std::size_t client) {
  std::size_t const index = enrolOne(assault, client);
  std::size_t const mounts = assault.sized(30'000, 1'000);
  alternate(assault,
            {putRequest(ServeLoad::offerPath(index), offerOf(mounts, 0)),
             putRequest(ServeLoad::offerPath(index), offerOf(mounts, 1))});
}

void postLines(Assault& assault, std::size_t client) {
  std::size_t const documents = assault.sized(100'000, 1'000);
  auto const text = [&](std::size_t round) {
    return request("POST", kBatch, notesBatch(client, documents, 110, 5'000, round));
  };
  alternate(assault, {text(0), text(1)});
}

void postAtomic(Assault& assault, std::size_t client) {
  std::size_t const documents = assault.sized(10'000, 500);
  auto const text = [&](std::size_t round) {
    return request("POST", kAtomicBatch, notesBatch(client, documents, 1'600, documents, round));
  };
  alternate(assault, {text(0), text(1)});
}

void exchangeNetwork(Assault& assault, std::size_t /*client*/) { exchange(assault, kBatch); }
void exchangeNetworkAtomic(Assault& assault, std::size_t /*client*/) { exchange(assault, kAtomicBatch); }

void switchServices(Assault& assault, std::size_t /*client*/) {
  alternate(assault,
            {request("POST", kAtomicBatch, serviceLines(500, false)),
             request("POST", kAtomicBatch, serviceLines(500, true))});
}

void putNotes(Assault& assault, std::size_t client) {
  repeat(assault, [&](std::size_t i) { return putRequest(notePath(client), std::to_string(i)); });
}

void sendManyFields(Assault& assault, std::size_t /*client*/) {
  repeat(assault, [text = manyFields()](std::size_t /*i*/) { return text; });
}

void stopServer(Assault& assault, std::size_t /*client*/) {
  assault.sleep(assault.seconds / 4);
  std::chrono::duration<double> const time(assault.sized(4.0, 1.5));
  assault.server.signal(SIGSTOP);
  std::this_thread::sleep_for(time);
  assault.server.signal(SIGCONT);
  assault.stopped = time.count();
}

}  // namespace Attack
