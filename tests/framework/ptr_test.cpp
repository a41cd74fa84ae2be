// Counted pointers: what each operation does to the count, and pointers that are never null.
#include "framework/core/ptr.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <unordered_set>
#include <utility>

#include "framework/core/entity.h"
#include "support/sample.h"

namespace PtrTest {
namespace {

using Nox::Ptr;
using Nox::ValidPtr;
using Sample::Counted;
using Sample::Device;
using Sample::Object;

static_assert(sizeof(Ptr<Object>) == sizeof(void*) && sizeof(ValidPtr<Object>) == sizeof(void*));
static_assert(std::convertible_to<Ptr<Object>, Ptr<Object const>>);
static_assert(!std::convertible_to<Ptr<Object const>, Ptr<Object>>, "a pointer to const gives read access alone");
static_assert(!std::convertible_to<Ptr<Nox::Entity>, Ptr<Device>>);
static_assert(!std::is_default_constructible_v<ValidPtr<Object>>);
static_assert(std::is_same_v<decltype(*std::declval<Ptr<Object const>>()), Object const&>);

TEST(Ptr, CopyingCountsAndMovingDoesNot) {
  Ptr<Object> a = Nox::make<Object>();
  EXPECT_EQ(a->count(), 1U);
  Ptr<Object> b = a;
  Ptr<Object const> c = a;
  EXPECT_EQ(a->count(), 3U);
  Ptr<Object> d = std::move(b);
  Ptr<Nox::PtrInterface const> e = std::move(c);
  EXPECT_EQ(a->count(), 3U);
  EXPECT_EQ(b, nullptr);  // NOLINT(bugprone-use-after-move): a moved-from one is empty
  EXPECT_EQ(c, nullptr);  // NOLINT(bugprone-use-after-move): a moved-from one is empty
  d = nullptr;
  e = nullptr;
  EXPECT_EQ(a->count(), 1U);
}

TEST(Ptr, AssigningTheSameObjectLeavesTheCountAlone) {
  Ptr<Object> a = Nox::make<Object>();
  Ptr<Object>& self = a;
  Ptr<Object> b = a;
  a = self;
  a = std::move(self);
  a = b;
  EXPECT_EQ(a->count(), 2U);
  a = std::move(b);
  EXPECT_EQ(a->count(), 1U);
}

/// A list cell: what it points at goes with it.
struct Cell : Nox::PtrInterface, Counted {
  Ptr<Cell> next;
};

TEST(Ptr, TheNewTargetIsCountedBeforeTheOldOneIsReleased) {
  Ptr<Cell> list = Nox::make<Cell>();
  list->next = Nox::make<Cell>();
  list->next->next = Nox::make<Cell>();
  list = list->next;
  EXPECT_EQ(Counted::alive, 2);
  list = std::move(list->next);
  EXPECT_EQ(Counted::alive, 1);
  list = nullptr;
  EXPECT_EQ(Counted::alive, 0);
}

TEST(Ptr, RandomAssignmentsLeaveEveryObjectWithExactlyItsPointers) {
  std::mt19937 random(1);
  std::array<Object*, 4> raw{};
  std::array<Ptr<Object>, 8> slots;
  std::array<int, 8> model;  // which object each slot holds
  model.fill(-1);
  for (unsigned i = 0; i < raw.size(); ++i) {
    slots[i] = Nox::make<Object>();
    raw[i] = slots[i].get();
    raw[i]->hold();  // lives through the test, counted or not
    model[i] = static_cast<int>(i);
  }
  for (int step = 0; step < 5000; ++step) {
    std::size_t const to = random() % slots.size(), from = random() % slots.size();
    switch (random() % 5) {
      case 0:
        slots[to] = slots[from];
        model[to] = model[from];
        break;
      case 1:
        slots[to] = std::move(slots[from]);
        if (to != from) model[to] = std::exchange(model[from], -1);
        break;
      case 2:
        slots[to].swap(slots[from]);
        std::swap(model[to], model[from]);
        break;
      case 3:
        slots[to] = nullptr;
        model[to] = -1;
        break;
      default: {
        int const object = static_cast<int>(random() % raw.size());
        slots[to] = raw[static_cast<std::size_t>(object)];
        model[to] = object;
      }
    }
    for (unsigned i = 0; i < raw.size(); ++i) {
      auto const expected = std::count(model.begin(), model.end(), static_cast<int>(i));
      ASSERT_EQ(raw[i]->count(), static_cast<std::uint32_t>(expected)) << "step " << step;
    }
  }
  slots.fill(nullptr);
  for (Object* object : raw) object->unhold();
  EXPECT_EQ(Counted::alive, 0);
}

TEST(Ptr, AdoptTakesAReferenceOverAndDetachGivesItAway) {
  Ptr<Object> p = Ptr<Object>::adopt(new Object);
  EXPECT_EQ(p->count(), 1U);
  Object* const raw = std::move(p).detach();
  EXPECT_EQ(p, nullptr);  // NOLINT(bugprone-use-after-move): a moved-from one is empty
  EXPECT_EQ(raw->count(), 1U);
  raw->release();
  EXPECT_EQ(Counted::alive, 0);
}

TEST(Ptr, ComparesAndHashesByAddress) {
  Ptr<Object> const a = Nox::make<Object>();
  Ptr<Object const> const sameAsA = a;
  Ptr<Object> const b = Nox::make<Object>();
  EXPECT_TRUE(a == sameAsA);
  EXPECT_TRUE(a != b);
  EXPECT_TRUE(a != nullptr);
  std::unordered_set<Ptr<Object>> const set{a, b, a};
  EXPECT_EQ(set.size(), 2U);
}

TEST(Ptr, CastsToAnotherClassGiveNullWhereTheObjectIsNoneOfIt) {
  Ptr<Nox::Entity> const device = Ptr<Device>(Nox::make<Device>("d"));
  Ptr<Nox::Entity> const plain = Nox::make<Nox::Entity>("e");
  EXPECT_EQ(Nox::ptrCast<Device>(device), device);
  EXPECT_EQ(Nox::ptrCast<Device>(plain), nullptr);
  EXPECT_EQ(Nox::ptrCast<Device>(Ptr<Nox::Entity>()), nullptr);
}

TEST(Ptr, AConstructorThatThrowsLeavesNothing) {
  struct Thrower : Nox::PtrInterface, Counted {
    Thrower() { throw std::runtime_error("no"); }
  };
  EXPECT_THROW(Nox::make<Thrower>(), std::runtime_error);
  EXPECT_EQ(Counted::alive, 0);
}

TEST(Ptr, AConstructorMayHandOutPointersToItself) {
  struct Selfish : Nox::PtrInterface {
    Selfish() { Ptr<Selfish> const passing(this); }
  };
  Ptr<Selfish> const p = Nox::make<Selfish>();
  EXPECT_EQ(p->noxWord(), 1U);
}

/// The text of the range exception that `f` throws.
template <class F>
std::string rangeTextOf(F f) {
  try {
    f();
  } catch (Nox::RangeException const& e) {
    return e.what();
  }
  return "nothing thrown";
}

TEST(ValidPtr, IsNeverMadeFromNull) {
  EXPECT_EQ(rangeTextOf([] { ValidPtr<Object> p{Ptr<Object>()}; }), "null ValidPtr");
  EXPECT_EQ(rangeTextOf([] { ValidPtr<Object> p(static_cast<Object*>(nullptr)); }), "null ValidPtr");
  EXPECT_EQ(rangeTextOf([] { ValidPtr<Nox::Entity> p{Ptr<Device>()}; }), "null ValidPtr");
  ValidPtr<Object> p = Nox::make<Object>();
  EXPECT_EQ(rangeTextOf([&] { p = Ptr<Object>(); }), "null ValidPtr");
  EXPECT_EQ(rangeTextOf([&] { p = nullptr; }), "null ValidPtr");
  EXPECT_TRUE(p) << "a refused assignment leaves the old object";
  EXPECT_EQ(p->count(), 1U);
}

TEST(ValidPtr, AFactoryThatYieldsNothingFails) {
  auto const factory = []() -> ValidPtr<Object> { return Ptr<Object>(); };
  EXPECT_EQ(rangeTextOf([&] { factory(); }), "null ValidPtr");
}

TEST(ValidPtr, IsAPtrAndWidens) {
  ValidPtr<Device> const device = Nox::make<Device>("d");
  ValidPtr<Nox::Entity> const entity = device;
  Ptr<Nox::Entity const> const read = entity;
  EXPECT_EQ(read, device);
  EXPECT_EQ(device->noxWord(), 3U);
}

TEST(RawPointerText, IsHexadecimalAndReadsBack) {
  EXPECT_EQ(Nox::valueToStrepOfRawPtr(nullptr), "0x0");
  Ptr<Object> const object = Nox::make<Object>();
  Nox::String8 const text = Nox::valueToStrepOfRawPtr(object.get());
  EXPECT_EQ(text.view().substr(0, 2), "0x");
  EXPECT_EQ(std::strtoull(text.charPtr(), nullptr, 16), reinterpret_cast<std::uintptr_t>(object.get()));
}

}  // namespace

}  // namespace PtrTest
