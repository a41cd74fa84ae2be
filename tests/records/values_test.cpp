// Tests of the records' value types: versions and mounts.
#include <gmock/gmock.h>

#include <sstream>

#include "records/mount.h"
#include "records/service.h"

namespace ValuesTest {

using Controller::MountDesc;
using Controller::ServiceVersionV1;

template <class T>
static std::string textOf(T const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

TEST(ServiceVersionV1, PrintsItsNumberThenItsDescriptionIfThereIsOne) {
  EXPECT_EQ(textOf(ServiceVersionV1()), "0");
  EXPECT_EQ(textOf(ServiceVersionV1(7)), "7");
  EXPECT_EQ(textOf(ServiceVersionV1(7, "")), "7");
  EXPECT_EQ(textOf(ServiceVersionV1(7, "seventh version")), "7 seventh version");
  EXPECT_EQ(textOf(ServiceVersionV1(4294967295U, "last")), "4294967295 last");
}

TEST(ServiceVersionV1, IsEqualByNumberAndDescription) {
  EXPECT_EQ(ServiceVersionV1(1, "one"), ServiceVersionV1(1, "one"));
  EXPECT_FALSE(ServiceVersionV1(1, "one") == ServiceVersionV1(1));
  EXPECT_FALSE(ServiceVersionV1(1, "one") == ServiceVersionV1(2, "one"));
  EXPECT_EQ(ServiceVersionV1(3, "three").version(), 3U);
  EXPECT_EQ(ServiceVersionV1(3, "three").desc(), "three");
}

TEST(MountDesc, DefaultIsEmptyButForItsModeAndStandsForNoMount) {
  MountDesc const mount;
  EXPECT_EQ(mount.path, "");
  EXPECT_EQ(mount.remotePath, "");
  EXPECT_EQ(mount.type, "");
  EXPECT_EQ(mount.mode, "rt");
  EXPECT_EQ(mount.service, "");
  EXPECT_TRUE(!mount);
}

// Each of the five fields on its own makes a mount of the default, and another mount of a mount.
TEST(MountDesc, IsSomeMountAsSoonAsAnyFieldDiffers) {
  std::apply(
      [](auto const&... field) {
        auto const check = [](char const* name, Nox::String8 MountDesc::*member) {
          MountDesc mount;
          mount.*member = "x";
          EXPECT_FALSE(!mount) << name;
          EXPECT_FALSE(mount == MountDesc()) << name;
          EXPECT_EQ(mount, MountDesc(mount)) << name;
          mount.*member = MountDesc().*member;
          EXPECT_TRUE(!mount) << name;
        };
        (check(field.first, field.second), ...);
      },
      MountDesc::fields());
  MountDesc withoutMode;
  withoutMode.mode = "";
  EXPECT_FALSE(!withoutMode);
}

TEST(MountDesc, ListsAndPrintsItsFieldsInDeclaredOrder) {
  std::vector<std::string> names;
  std::apply([&](auto const&... field) { (names.emplace_back(field.first), ...); }, MountDesc::fields());
  EXPECT_THAT(names, testing::ElementsAre("path", "remotePath", "type", "mode", "service"));
  EXPECT_EQ(textOf(MountDesc{"/p", "/r", "t", "m", "s"}), "/p /r t m s");
  EXPECT_EQ(textOf(MountDesc()), "- - - rt -");
}

}  // namespace ValuesTest
