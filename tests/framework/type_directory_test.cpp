// The types that are known by name, as long as they are registered.
#include <gtest/gtest.h>

#include "framework/core/dir.h"
#include "support/sample.h"

namespace TypeDirectoryTest {
namespace {

using Nox::Dir;
using Nox::Entity;

TEST(TypeDirectory, FindsATypeForAsLongAsItIsRegistered) {
  static constinit Nox::NoxType first{"Sample::First", &Entity::noxType, nullptr};
  static constinit Nox::NoxType second{"Sample::Second", &first, nullptr};
  EXPECT_EQ(Nox::typeNamed("Nox::Dir"), &Dir::noxType);
  {
    Nox::TypeRegistration const a(first);
    {
      Nox::TypeRegistration const b(second);
      EXPECT_EQ(Nox::typeNamed("Sample::First"), &first);
      EXPECT_EQ(Nox::typeNamed("Sample::Second"), &second);
    }
    EXPECT_EQ(Nox::typeNamed("Sample::Second"), nullptr);
    EXPECT_EQ(Nox::typeNamed("Sample::First"), &first);
  }
  EXPECT_EQ(Nox::typeNamed("Sample::First"), nullptr);
  EXPECT_TRUE(second.isA(Entity::noxType));
  EXPECT_FALSE(first.isA(second));
}

TEST(TypeDirectory, ATypeThatIsRegisteredButNotMadeByNameIsRefused) {
  static constinit Nox::NoxType plain{"Sample::Plain", &Entity::noxType, nullptr};
  Nox::TypeRegistration const registration(plain);
  auto const dir = Nox::make<Dir>("d");
  EXPECT_THROW(dir->newEntity("x", "Sample::Plain"), Nox::RangeException);
}

}  // namespace
}  // namespace TypeDirectoryTest
