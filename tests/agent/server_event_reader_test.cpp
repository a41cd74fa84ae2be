// Events come out of a stream whole, however it is cut.
#include "agent/net/server_event_reader.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace Agent::ServerEventReaderTest {
namespace {

using Texts = std::vector<std::string>;

/// "NAME|DATA|ID" of every event, with the stream cut behind each of the sizes in turn.
Texts read(std::string_view text, std::vector<std::size_t> const& sizes, std::string* lastId = nullptr) {
  ServerEventReader stream;
  Texts events;
  for (std::size_t i = 0; !text.empty(); ++i) {
    std::size_t const size = std::min(text.size(), sizes[i % sizes.size()]);
    stream.feed(text.substr(0, size), [&](ServerEvent const& event) {
      events.push_back(event.name + "|" + event.data + "|" + stream.lastId());
      return true;
    });
    text.remove_prefix(size);
  }
  if (lastId) *lastId = stream.lastId();
  return events;
}

TEST(ServerEventReader, TakesFieldsAsTheyAreMeant) {
  struct {
    std::string text;
    Texts events;
    std::string lastId;
  } const cases[] = {
      {"event: change\ndata: {\"a\":1}\nid: 7\n\n", {"change|{\"a\":1}|7"}, "7"},
      {"data: a\ndata:b\ndata\n\n", {"message|a\nb\n|"}, ""},
      {"data:  two blanks\n\n", {"message| two blanks|"}, ""},
      {": a comment\n\ndata: x\n\n", {"message|x|"}, ""},
      {"id: 1\n\nid: 2\n\n", {}, "2"},
      {"id: 1\ndata: x\n\ndata: y\n\n", {"message|x|1", "message|y|1"}, "1"},
      {"id: 1\ndata: x\n", {}, ""},
      {"event: lost\n\ndata: x\n\n", {"message|x|"}, ""},
      {"data: x\r\n\r\ndata: y\r\rdata: z\n\n", {"message|x|", "message|y|", "message|z|"}, ""},
      {"\xEF\xBB\xBF"
       "data: x\n\n",
       {"message|x|"},
       ""},
      {"nonsense: x\nretry: 5\ndata: x\n\n", {"message|x|"}, ""},
      {std::string("id: 1\n\nid: 2\0\n\n", 15), {}, "1"},
      {"", {}, ""},
  };
  for (auto const& [text, events, lastId] : cases) {
    for (std::size_t size = 1; size <= text.size() + 1; ++size) {
      std::string id;
      EXPECT_EQ(read(text, {size}, &id), events) << text << " in pieces of " << size;
      EXPECT_EQ(id, lastId) << text << " in pieces of " << size;
    }
  }
}

TEST(ServerEventReader, GivesTheSameForEveryWayOfCutting) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::string text;
    Texts expected;
    std::string id;
    for (unsigned event = random() % 6; event > 0; --event) {
      std::string const lineEnd = Texts{"\n", "\r", "\r\n"}[random() % 3];
      bool const hasData = random() % 4 != 0;
      std::string const data(random() % 20, static_cast<char>('a' + random() % 26));
      if (random() % 2 == 0) text += "id: " + (id = std::to_string(random() % 100)) + lineEnd;
      if (random() % 3 == 0) text += ":" + data + lineEnd;
      text += "event: e" + lineEnd;
      if (hasData) text += "data: " + data + lineEnd;
      text += lineEnd;
      if (hasData) expected.push_back("e|" + data + "|" + id);
    }
    std::vector<std::size_t> sizes;
    for (int i = 0; i < 10; ++i) sizes.push_back(1 + random() % 12);
    EXPECT_EQ(read(text, sizes), expected) << text;
  }
}

TEST(ServerEventReader, GoesNoFurtherThanIsWanted) {
  ServerEventReader stream;
  int taken = 0;
  EXPECT_FALSE(stream.feed("data: a\n\ndata: b\n\n", [&](ServerEvent const&) { return ++taken < 1; }));
  EXPECT_EQ(taken, 1);
}

TEST(ServerEventReader, RefusesAnEventWithoutEnd) {
  ServerEventReader stream;
  std::string const piece(1024 * 1024, 'x');
  auto const feedAll = [&](std::string const& end) {
    for (std::size_t size = 0; size <= ServerEventReader::kMaximumBytes; size += piece.size())
      stream.feed("data: " + piece + end, [](ServerEvent const&) { return true; });
  };
  EXPECT_THROW(feedAll("\n"), EventTooLong);
}

}  // namespace
}  // namespace Agent::ServerEventReaderTest
