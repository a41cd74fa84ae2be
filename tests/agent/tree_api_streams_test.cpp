// Long answers as their readers take them: what they tell, and what they hold meanwhile.
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>

#include "support/api_world.h"

namespace Agent::TreeApiStreamsTest {
namespace {

ServiceOptions shortHistory() {
  ServiceOptions options;
  options.history = {1, 1};
  return options;
}

class TreeApiStreams : public ApiWorld {
 protected:
  TreeApiStreams() : ApiWorld(shortHistory()) {}

  static std::string pathOf(std::size_t note) { return "registration/a/note" + std::to_string(note + 1000); }

  std::unique_ptr<BodySource> open(std::string const& target, std::string const& method = "GET") {
    std::unique_ptr<BodySource> source;
    api.handle({method, target, {}, ""}, [&](HttpResponse response) {
      EXPECT_EQ(response.status, 200);
      source = std::move(response.source);
    });
    world.loop.run();
    return source;
  }

  /// Puts a note of so many letters, and turns it out of the history.
  void putNote(std::size_t note, std::size_t size, char letter) {
    world.put(pathOf(note), '"' + std::string(size, letter) + '"');
    world.put("mount/ready/x", world.read("mount/ready/x") == "true" ? "false" : "true");
  }
};

/// All that is left; "broken off" if it is.
std::string restOf(BodySource& source) {
  std::string all;
  try {
    while (auto const piece = source.next()) {
      EXPECT_LE(piece->size(), kPieceBytes + 1000);
      all += *piece;
    }
  } catch (std::exception const&) {
    return "broken off";
  }
  return all;
}

// What stands all the time is told as it stands, and what changes meanwhile as it is at some time since the request.
TEST_F(TreeApiStreams, ATreeIsToldPlaceByPlaceAsItStands) {
  std::mt19937 random(1);
  std::map<std::string, std::set<std::string>> stood;
  auto const note = [&](std::size_t number) { stood[pathOf(number)].insert(world.read(pathOf(number))); };
  for (std::size_t number = 0; number < 200; ++number) {
    world.put(pathOf(number), '"' + std::string(random() % 3000, 'a') + '"');
  }
  for (std::size_t number = 0; number < 220; ++number) note(number);
  auto const source = open("/v1/tree?prefix=registration/");
  std::string body;
  for (auto piece = source->next(); piece; piece = source->next()) {
    EXPECT_LE(piece->size(), kPieceBytes + 1000);
    body += *piece;
    for (int change = 0; change < 20; ++change) {
      std::size_t const number = random() % 220;
      if (random() % 2 == 0)
        world.put(pathOf(number), '"' + std::string(random() % 3000, 'b') + '"');
      else
        world.remove(pathOf(number));
      note(number);
    }
  }
  Json const told = Json::parse(body);
  for (auto const& [path, value] : told.items()) EXPECT_EQ(stood.at(path).count(value.dump()), 1u) << path;
  for (auto const& [path, texts] : stood)
    if (texts.size() == 1) {
      EXPECT_EQ(told.contains(path) ? told[path].dump() : "nothing", *texts.begin()) << path;
    }
  std::vector<std::string> paths;
  for (std::size_t at = body.find("\n\""); at != std::string::npos; at = body.find("\n\"", at + 1))
    paths.push_back(body.substr(at, body.find(": ", at) - at));
  EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end()));
  EXPECT_EQ(paths.size(), told.size());
}

TEST_F(TreeApiStreams, AReaderOfATreeHoldsNoDocument) {
  for (std::size_t number = 0; number < 300; ++number) putNote(number, 900, 'a');
  auto const source = open("/v1/tree");
  source->next();
  std::weak_ptr<std::string const> const last = world.service->kept().documents.at(pathOf(299)).text;
  putNote(299, 900, 'b');
  EXPECT_TRUE(last.expired());
  EXPECT_NE(restOf(*source).find("bbb"), std::string::npos);
}

TEST_F(TreeApiStreams, AReaderOfAnotherStateIsBrokenOff) {
  for (std::size_t number = 0; number < 100; ++number) putNote(number, 900, 'a');
  auto const source = open("/v1/tree");
  source->next();
  world.service->watches().restart("0123456789abcdef");
  EXPECT_EQ(restOf(*source), "broken off");
}

// A document that is replaced while many readers are in the middle of it is held for as many as there is room for.
TEST_F(TreeApiStreams, OfALongDocumentReadersHoldWhatThereIsRoomFor) {
  constexpr std::size_t kSize = 1'000'000;
  std::string const targets[] = {
      "/v1/tree/" + pathOf(0), "/v1/tree?prefix=registration/", "/v1/watch?after=0&prefix=registration/"};
  for (std::string const& target : targets) {
    SCOPED_TRACE(target);
    limits.watches = 100;
    TreeApi wide{world.loop, *world.service, limits};
    putNote(0, kSize, 'a');
    std::weak_ptr<std::string const> const first = world.service->kept().documents.at(pathOf(0)).text;
    std::vector<std::unique_ptr<BodySource>> readers(80);
    for (auto& reader : readers) {
      wide.handle({"GET", target, {}, ""}, [&](HttpResponse response) { reader = std::move(response.source); });
      world.loop.run();
      EXPECT_LE(reader->next()->size(), kPieceBytes + 1000);
    }
    putNote(0, kSize, 'z');
    EXPECT_FALSE(first.expired());
    std::size_t whole = 0;
    for (auto& reader : readers) {
      std::string text;
      try {
        while (text.find("\"\n") == std::string::npos && text.find("\"}") == std::string::npos) {
          auto const piece = reader->next();
          if (!piece) break;
          text += *piece;
        }
        whole += std::count(text.begin(), text.end(), 'a') > 900'000 ? 1 : 0;
      } catch (std::exception const&) {
      }
      // Whether it is told or not, it is the reader's no longer.
      reader.reset();
    }
    EXPECT_TRUE(first.expired());
    EXPECT_EQ(whole, kHeldTextBytes / (kSize + 2));
  }
}

TEST_F(TreeApiStreams, ALongDocumentIsToldWhole) {
  for (std::size_t const size : {kPieceBytes - 3, kPieceBytes - 2, kPieceBytes - 1, 3 * kPieceBytes}) {
    putNote(0, size, 'a');
    std::string const text = world.read(pathOf(0));
    EXPECT_EQ(get("/v1/tree/" + pathOf(0)).body, text + "\n") << size;
    EXPECT_EQ(get("/v1/tree?prefix=registration/").json()[pathOf(0)].dump(), text) << size;
  }
}

}  // namespace
}  // namespace Agent::TreeApiStreamsTest
