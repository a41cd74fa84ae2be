// The framework's exceptions: what they carry and what throws which.
#include "framework/text/exception.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "framework/by_name/generic_if.h"

namespace ExceptionTest {
namespace {

using Nox::Exception;

TEST(IdBitArray, HoldsExactlyWhatWasAdded) {
  std::set<Exception::Id> const added{0, 1, 63, 64, 65, 127, 128, 1000};
  Exception::IdBitArray ids;
  for (Exception::Id const id : added) ids.add(id);
  for (Exception::Id id = 0; id < 1200; ++id) EXPECT_EQ(ids.has(id), added.count(id) != 0) << id;
  EXPECT_FALSE(Exception::IdBitArray().has(0));
}

TEST(Exception, CarriesMessageIdsAndFlag) {
  Exception::IdBitArray ids;
  ids.add(7);
  Nox::RangeException const e("text", ids, true);
  EXPECT_STREQ(e.what(), "text");
  EXPECT_EQ(e.message(), "text");
  EXPECT_TRUE(e.ids().has(7));
  EXPECT_TRUE(e.flag());
  EXPECT_FALSE(Exception("other").flag());
}

template <class Thrown, class F>
void expectThrown(F f, char const* text) {
  try {
    f();
    FAIL() << "nothing thrown";
  } catch (Exception const& e) {
    EXPECT_NE(dynamic_cast<Thrown const*>(&e), nullptr);
    EXPECT_STREQ(e.what(), text);
  }
}

TEST(Exception, MisuseThrowsAnExceptionOfItsKind) {
  expectThrown<Nox::RangeException>([] { Nox::throwRangeException("null ValidPtr"); }, "null ValidPtr");
  expectThrown<Nox::NameInUseException>([] { Nox::throwNameInUseException("taken"); }, "taken");
  expectThrown<Nox::ConstException>([] { Nox::GenericIf::throwConstException(); },
                                    "attempting to modify a const instance");
}

TEST(Exception, IsAStandardException) { EXPECT_THROW(Nox::throwRangeException("x"), std::exception); }

}  // namespace

}  // namespace ExceptionTest
