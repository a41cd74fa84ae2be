// Documents against records: what is read, what is refused, and in which order a document is written.
#include "agent/tree/codec_rows.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <tuple>

#include "records/agent.h"
#include "records/registration.h"
#include "support/write_log.h"

namespace Agent::CodecTest {
namespace {

using Controller::MountDesc;
using Controller::ServiceConfigV1;
using Controller::ServiceVersionV1;
using Controller::SystemId;
using Controller::SystemPublishedMount;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using testing::ElementsAre;

template <class R>
void put(std::string const& document, R& record) {
  Json const json = readJson(document);
  DocumentOf<R>(json).writeTo(record);
}

TEST(Codec, ReadsTheDefaultsOfAFreshRecord) {
  EXPECT_EQ(readDocument(*Nox::make<Controllerdb::Config>("")), R"({"enabled":false})");
  EXPECT_EQ(readDocument(*Nox::make<Controllerdb::Status>("")), R"({"controllerUUID":"","enabled":false})");
  EXPECT_EQ(readDocument(*Nox::make<SwitchConfig>("a")),
            R"({"systemId":"00:00:00:00:00:00","serviceConfig":{},"enabled":false,"registrationGenId":0})");
  EXPECT_EQ(readDocument(*Nox::make<SwitchStatus>("a")),
            R"({"controllerUUID":"","registrationGenId":0,"clientShutdownAck":false,)"
            R"("serviceStatus":{},"servicePublishedInfo":{}})");
  EXPECT_EQ(readDocument(*Nox::make<ServiceConfigV1>("s")), R"({"enabled":false,"versionConfig":{"version":{}}})");
  EXPECT_EQ(readDocument(*Nox::make<SystemPublishedMount>(SystemId(1))), R"({"publishedMount":{}})");
}

TEST(Codec, ReadsEveryFieldOfAnAnswer) {
  auto const status = Nox::make<SwitchStatus>("a");
  status->controllerUUIDIs("uuid");
  status->registrationGenIdIs(4294967295);
  status->clientShutdownAckIs(true);
  auto const service = status->serviceStatusIs("s");
  service->enabledIs(true);
  auto const version = service->versionStatusIs("VersionStatuss");
  version->negotiatedVersionIs(ServiceVersionV1(3, "three"));
  version->versionCompatibleIs(true);
  version->versionNegotiationCompleteIs(true);
  auto const published = status->servicePublishedInfoIs("s");
  published->readyIs(true);
  MountDesc mount;
  mount.path = "a/b";
  mount.service = "s";
  published->publishedMountIs(mount);
  EXPECT_EQ(
      readDocument(*status),
      R"({"controllerUUID":"uuid","registrationGenId":4294967295,"clientShutdownAck":true,)"
      R"("serviceStatus":{"s":{"enabled":true,"versionStatus":{"name":"VersionStatuss",)"
      R"("negotiatedVersion":{"version":3,"desc":"three"},"versionCompatible":true,"versionNegotiationComplete":true}}},)"
      R"("servicePublishedInfo":{"s":{"ready":true,"publishedMount":{)"
      R"("a/b":{"path":"a/b","remotePath":"","type":"","mode":"rt","service":"s"}}}}})");
}

TEST(Codec, ReadsKeyedMembersInByteOrderOfTheirKeys) {
  auto const config = Nox::make<SwitchConfig>("a");
  put(R"({"serviceConfig": {"é": {}, "a-b": {}, "a": {}, "B": {}, "b": {"versionConfig":
      {"version": {"10": "", "9": "", "1": "", "4294967295": "", "0": ""}}}}})",
      *config);
  Json const read = readJson(readDocument(*config));
  std::vector<std::string> keys;
  for (auto const& [key, value] : read["serviceConfig"].items()) keys.push_back(key);
  for (auto const& [key, value] : read["serviceConfig"]["b"]["versionConfig"]["version"].items()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre("B", "a", "a-b", "b", "é", "0", "1", "10", "4294967295", "9"));
}

TEST(Codec, AnAbsentFieldMeansItsDefault) {
  auto const config = Nox::make<SwitchConfig>("a");
  std::string const fresh = readDocument(*config);
  put(R"({"systemId": "02:00:00:AA:00:01", "serviceConfig": {"s": {"enabled": true}}, "enabled": true,
          "registrationGenId": 4294967295})",
      *config);
  EXPECT_EQ(config->systemId(), SystemId(0x020000aa0001));
  config->connectionConfigIs("no part of the document");
  put("{}", *config);
  EXPECT_EQ(readDocument(*config), fresh);
  EXPECT_EQ(config->connectionConfig(), "no part of the document");

  auto const offer = Nox::make<SystemPublishedMount>(SystemId(1));
  put(R"({"publishedMount": {"p": {"mode": "ro", "type": "t"}}})", *offer);
  put(R"({"publishedMount": {"p": {"path": "p", "type": "u"}}})", *offer);
  EXPECT_EQ(offer->publishedMount("p"), (MountDesc{"p", "", "u", "rt", ""}));
}

TEST(Codec, WritesFieldsInTheOrderOfTheTable) {
  auto const config = Nox::make<SwitchConfig>("a");
  WriteLog const log;
  put(R"({"registrationGenId": 7, "enabled": false, "systemId": "00:00:00:00:00:02"})", *config);
  EXPECT_THAT(log.lines(),
              ElementsAre("a.systemId = 00:00:00:00:00:02", "a.enabled = 0 (equal)", "a.registrationGenId = 7"));
}

TEST(Codec, WritesRemovedMembersThenChangedThenNewOnes) {
  auto const service = Nox::make<ServiceConfigV1>("s");
  put(R"({"versionConfig": {"version": {"1": "one", "2": "two", "3": "three"}}})", *service);
  WriteLog const log;
  put(R"({"versionConfig": {"version": {"4": "four", "3": "three", "2": "zwei"}}})", *service);
  EXPECT_THAT(log.lines(),
              ElementsAre("s.enabled = 0 (equal)",
                          "versionConfig.version[1] deleted",
                          "versionConfig.version[2] = 2 zwei",
                          "versionConfig.version[3] = 3 three (equal)",
                          "versionConfig.version[4] = 4 four"));
}

TEST(Codec, WritesEachGroupInTheCollectionsOrder) {
  std::mt19937 random(5);
  auto const offer = Nox::make<SystemPublishedMount>(SystemId(1));
  auto const order = [&] {
    std::vector<std::string> keys;
    for (auto const& mount : offer->publishedMount()) keys.emplace_back(mount.fwkKey().view());
    return keys;
  };
  for (int round = 0; round < 200; ++round) {
    Json mounts = Json::object();
    for (int i = 0; i < 20; ++i) mounts["p" + std::to_string(random() % 60)] = Json{{"type", random() % 2 ? "t" : "u"}};
    std::vector<std::string> const before = order();
    WriteLog const log;
    put(Json{{"publishedMount", mounts}}.dump(), *offer);
    std::vector<std::string> const after = order();
    ASSERT_EQ(after.size(), mounts.size());

    std::vector<std::string> expected;
    auto const expect = [&](std::string const& key, char const* what) { expected.push_back("[" + key + "] " + what); };
    auto const wasThere = [&](std::string const& key) {
      return std::find(before.begin(), before.end(), key) != before.end();
    };
    for (std::string const& key : before)
      if (!mounts.contains(key)) expect(key, "d");
    for (bool const isNew : {false, true})
      for (std::string const& key : after)
        if (wasThere(key) != isNew) expect(key, "=");
    std::vector<std::string> written;
    for (std::string const& line : log.lines()) {
      std::size_t const from = line.find('[');
      written.push_back(line.substr(from, line.find(']') + 3 - from));
    }
    ASSERT_EQ(written, expected);
  }
}

TEST(Codec, MembersThatStayKeepTheirEntities) {
  auto const config = Nox::make<SwitchConfig>("a");
  put(R"({"serviceConfig": {"s": {}, "t": {"enabled": true}}})", *config);
  auto const s = config->serviceConfig("s");
  auto const versions = s->versionConfig();
  auto const t = config->serviceConfig("t");
  put(R"({"serviceConfig": {"s": {"enabled": true, "versionConfig": {"version": {"1": ""}}}}})", *config);
  EXPECT_EQ(config->serviceConfig("s"), s);
  EXPECT_EQ(s->versionConfig(), versions);
  EXPECT_TRUE(s->enabled());
  EXPECT_TRUE(versions->version().has(1));
  put(R"({"serviceConfig": {"s": {}, "t": {}}})", *config);
  EXPECT_NE(config->serviceConfig("t"), t);
  EXPECT_TRUE(t->enabled()) << "who holds a removed entity keeps it with its content";
}

TEST(Codec, AnEqualDocumentChangesNothing) {
  auto const config = Nox::make<SwitchConfig>("a");
  std::string const document = R"({"systemId": "02:00:00:00:00:02", "serviceConfig": {"s": {"enabled": true,
      "versionConfig": {"version": {"1": "one"}}}}, "enabled": true, "registrationGenId": 3})";
  put(document, *config);
  WriteLog const log;
  put(document, *config);
  put(readDocument(*config), *config);
  EXPECT_FALSE(log.lines().empty());
  EXPECT_THAT(log.changes(), testing::IsEmpty());
}

template <class R>
std::string refusal(std::string const& document) {
  try {
    std::ignore = DocumentOf<R>(readJson(document));
    return "accepted";
  } catch (InputError const& error) {
    return error.field() + ": " + error.reason();
  }
}

TEST(Codec, SaysWhatIsWrongAndWhere) {
  struct {
    std::string (*check)(std::string const& document);
    std::string document;
    std::string refusal;
  } const cases[] = {
      {refusal<Controllerdb::Config>, "[]", ": expected an object, found an array"},
      {refusal<Controllerdb::Config>, R"({"enabled": 1})", "enabled: expected true or false, found the number 1"},
      {refusal<Controllerdb::Config>, R"({"port": 1})", "port: no such field here; the fields are enabled"},
      {refusal<Controllerdb::Config>, R"({"": 1})", "[\"\"]: no such field here; the fields are enabled"},
      {refusal<Controllerdb::Status>,
       R"({"controllerUUID": "u", "enabled": false})",
       "enabled: this field is the registry's own: no put may hold it"},
      {refusal<Controllerdb::Status>, R"({"controllerUUID": null})", "controllerUUID: expected a string, found null"},
      {refusal<SwitchStatus>,
       R"({"clientShutdownAck": false})",
       "clientShutdownAck: this field is the registry's own: no put may hold it"},
      {refusal<SwitchStatus>,
       R"({"serviceStatus": {}})",
       "serviceStatus: this field is the registry's own: no put may hold it"},
      {refusal<SwitchConfig>,
       R"({"systemId": "02:00:00:00:00"})",
       "systemId: expected a system id like 02:00:00:aa:00:01, found the string \"02:00:00:00:00\""},
      {refusal<SwitchConfig>, R"({"systemId": 2})", "systemId: expected a string, found the number 2"},
      {refusal<SwitchConfig>,
       R"({"connectionConfig": ""})",
       "connectionConfig: no such field here; the fields are systemId, serviceConfig, enabled, registrationGenId"},
      {refusal<SwitchConfig>,
       R"({"isNondestructing": true})",
       "isNondestructing: no such field here; the fields are systemId, serviceConfig, enabled, registrationGenId"},
      {refusal<SwitchConfig>, R"({"serviceConfig": []})", "serviceConfig: expected an object, found an array"},
      {refusal<SwitchConfig>,
       R"({"serviceConfig": {"a/b": {}}})",
       "serviceConfig.a/b: \"a/b\" is not a service name: it contains a slash"},
      {refusal<SwitchConfig>,
       R"({"serviceConfig": {"": {}}})",
       "serviceConfig[\"\"]: \"\" is not a service name: it is empty"},
      {refusal<SwitchConfig>, R"({"serviceConfig": {"s": true}})", "serviceConfig.s: expected an object, found true"},
      {refusal<SwitchConfig>,
       R"({"serviceConfig": {"s": {"versionConfig": {"versions": {}}}}})",
       "serviceConfig.s.versionConfig.versions: no such field here; the fields are version"},
      {refusal<ServiceConfigV1>,
       R"({"versionConfig": {"version": {"1": 1}}})",
       "versionConfig.version.1: expected a string, found the number 1"},
      {refusal<SystemPublishedMount>,
       R"({"publishedMount": {"p/q": {"path": "p"}}})",
       "publishedMount.p/q.path: differs from its key: expected \"p/q\""},
      {refusal<SystemPublishedMount>,
       R"({"publishedMount": {"p": {"ready": true}}})",
       "publishedMount.p.ready: no such field; a mount has path, remotePath, type, mode and service"},
      {refusal<SystemPublishedMount>,
       R"({"publishedMount": {"p": {"mode": false}}})",
       "publishedMount.p.mode: expected a string, found false"},
      {refusal<SystemPublishedMount>,
       R"({"systemId": ""})",
       "systemId: no such field here; the fields are publishedMount"},
  };
  for (auto const& [check, document, expected] : cases) EXPECT_EQ(check(document), expected) << document;
}

TEST(Codec, NumbersAreUnsigned32BitIntegers) {
  for (char const* number : {"0", "1", "4294967295"})
    EXPECT_EQ(refusal<SwitchConfig>(std::string(R"({"registrationGenId": )") + number + "}"), "accepted") << number;
  for (char const* number : {"4294967296", "-1", "-0", "1.0", "1e0", "18446744073709551616", "\"1\"", "true", "null"}) {
    EXPECT_THAT(refusal<SwitchConfig>(std::string(R"({"registrationGenId": )") + number + "}"),
                testing::StartsWith("registrationGenId: expected a whole number"))
        << number;
  }
}

TEST(Codec, VersionNumbersAreDecimalWithoutLeadingZeros) {
  auto const key = [](std::string const& text) {
    return refusal<ServiceConfigV1>(R"({"versionConfig": {"version": {")" + text + R"(": ""}}})");
  };
  for (char const* number : {"0", "1", "10", "4294967295"}) EXPECT_EQ(key(number), "accepted") << number;
  EXPECT_EQ(key("07"),
            "versionConfig.version.07: expected a version number from 0 to 4294967295 without leading zeros");
  for (char const* number : {"", "00", "4294967296", "-1", "+1", " 1", "1 ", "1.0", "0x1", "1e3", "x", "99999999999"})
    EXPECT_THAT(key(number), testing::HasSubstr("expected a version number from 0 to 4294967295")) << number;
}

TEST(Codec, TextsKeepAnyCharacter) {
  auto const offer = Nox::make<SystemPublishedMount>(SystemId(1));
  std::string const document =
      R"({"publishedMount":{"":{"path":"","remotePath":"a\u0000b\n\"","type":"é😀","mode":"","service":"/"}}})";
  put(document, *offer);
  EXPECT_EQ(readDocument(*offer), document);
}

}  // namespace
}  // namespace Agent::CodecTest
