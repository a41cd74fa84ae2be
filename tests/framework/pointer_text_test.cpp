// From text to pointer: only what is a live object at this moment comes back, and nothing is touched to find out.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "framework/by_name/generic_if.h"
#include "framework/core/entity.h"
#include "support/rounds.h"

namespace PointerTextTest {
namespace {

using Nox::Entity;
using Nox::Ptr;
using Nox::sequenceToValueOfPtr;
using Test::sampled;
using Test::sampleSeed;

std::string textOf(void const* p) { return std::string(Nox::valueToStrepOfRawPtr(p).view()); }
std::string textOf(std::uintptr_t address) { return textOf(reinterpret_cast<void const*>(address)); }

TEST(PointerText, NamesALiveObjectOfItsClass) {
  Ptr<Entity> const entity = Nox::make<Entity>("leaf-1");
  Ptr<Nox::GenericIf::List_> const list = Nox::make<Nox::GenericIf::List_>(std::vector<Nox::GenericIf::Value>());
  EXPECT_EQ(sequenceToValueOfPtr(textOf(entity.get())), entity);
  EXPECT_EQ(sequenceToValueOfPtr<Entity>(textOf(entity.get())), entity);
  EXPECT_FALSE(sequenceToValueOfPtr<Entity>(textOf(list.get()))) << "of another class";
  for (char const* const nothing : {"", "0x0", "0", "000", "0xFFFFFFFFFFFFFFFF", "0x123456789ABCDEF0123456789"})
    EXPECT_FALSE(sequenceToValueOfPtr(nothing)) << nothing;
}

struct Label {
  virtual ~Label() = default;
  int number = 0;
};
struct Behind : Label, Entity {};
struct InFront : Entity, Label {};
template <class T>
concept HasText = requires {
  sequenceToValueOfPtr<T>("");
};
template <class T>
concept IsMade = requires {
  Nox::make<T>();
};
static_assert(HasText<InFront> && HasText<InFront const> && IsMade<InFront>);
static_assert(!HasText<Behind> && !HasText<Behind const> && !IsMade<Behind>,
              "a class that begins with something else could not be found by its address");

TEST(PointerText, JunkIsToldWithItsColumn) {
  Ptr<Entity> const entity = Nox::make<Entity>("leaf-1");
  std::string const good = textOf(entity.get());
  struct {
    std::string text;
    std::size_t column;
  } const cases[] = {{good + " ", good.size()},
                     {good + "g1", good.size()},
                     {" " + good, 0},
                     {"-1", 0},
                     {"0x", 1},
                     {"0xg", 1},
                     {"null", 0},
                     {"0x0\n", 3},
                     {"0x0x0", 3}};
  for (auto const& [text, column] : cases) {
    try {
      sequenceToValueOfPtr<Entity>(text);
      ADD_FAILURE() << "accepted " << text;
    } catch (Nox::RangeException const& refused) {
      EXPECT_EQ(refused.what(), "junk at column " + std::to_string(column) + " deserializing " + text);
      EXPECT_TRUE(refused.ids().has(12));
    }
  }
}

TEST(PointerText, FreedInteriorAndUnalignedAddressesNameNothing) {
  std::mt19937 random(1);
  std::vector<Ptr<Entity>> entities;
  for (int i = 0; i < 500; ++i) entities.push_back(Nox::make<Entity>("leaf"));
  std::vector<std::string> freed;
  for (int i = 0; i < 250; ++i) {
    freed.push_back(textOf(entities.back().get()));
    entities.pop_back();
  }
  for (std::string const& text : freed) EXPECT_FALSE(sequenceToValueOfPtr(text));
  for (auto const& entity : entities) {
    auto const address = reinterpret_cast<std::uintptr_t>(entity.get());
    auto const off = 1 + random() % (sizeof(Entity) - 1);
    EXPECT_FALSE(sequenceToValueOfPtr(textOf(address + off))) << off;
    EXPECT_FALSE(sequenceToValueOfPtr(textOf(address + 1)));
    EXPECT_EQ(sequenceToValueOfPtr(textOf(address)), entity);
  }
}

/// Any text is null, a live object, or refused; half of them are numbers.
TEST(PointerText, AMillionRandomTextsAreSurvived) {
  std::mt19937_64 random(sampleSeed(7));
  Ptr<Entity> const entity = Nox::make<Entity>("leaf-1");
  auto const near = reinterpret_cast<std::uintptr_t>(entity.get());
  for (std::size_t i = 0; i < sampled(1'000'000); ++i) {
    std::string text;
    if (i % 2 == 0) {
      auto const address = i % 4 == 0 ? near + random() % 4096 - 2048 : random() >> (random() % 48);
      text = textOf(address);
    } else {
      static constexpr std::string_view kBytes = "0123456789abcdefxX \n-+g";
      for (auto n = random() % 20; n > 0; --n) text += kBytes[random() % kBytes.size()];
    }
    try {
      Ptr<Nox::PtrInterface> const found = sequenceToValueOfPtr(text);
      if (found) {
        EXPECT_EQ(textOf(found.get()), textOf(std::stoul(text, nullptr, 16)));
      }
    } catch (Nox::RangeException const& refused) {
      ASSERT_TRUE(std::string(refused.what()).starts_with("junk at column ")) << refused.what();
    }
  }
}

TEST(PointerText, AnObjectThatIsGoingNamesNothing) {
  struct Going final : Entity {
    using Entity::Entity;
    ~Going() override { wasFound = static_cast<bool>(sequenceToValueOfPtr(textOf(this))); }
    bool& wasFound = found();
    static bool& found() {
      static bool is = true;
      return is;
    }
  };
  Nox::make<Going>("leaf-1");
  EXPECT_FALSE(Going::found());
}

}  // namespace

}  // namespace PointerTextTest
