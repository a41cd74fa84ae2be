// By name and by member is one and the same: what holds for every operation of every row of a class.
#pragma once

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <vector>

#include "by_name_worlds.h"

namespace ByName {

/// The operations of a class's rows, each as it is done by a member and by name.
template <class T>
std::vector<Step> steps();

template <class T>
class OperationByName : public testing::Test {};
TYPED_TEST_SUITE_P(OperationByName);

TYPED_TEST_P(OperationByName, DoesWhatTheMemberDoes) {
  for (Step const& step : steps<TypeParam>()) {
    auto const [byMember, byName] = bothWays<TypeParam>(step);
    EXPECT_EQ(byName, byMember) << form(step.attribute, step.op, step.argCount);
  }
}

TYPED_TEST_P(OperationByName, IsComparedForEveryRow) {
  Nox::NoxType const& type = TypeParam::noxType;
  std::set<std::string> compared;
  for (Step const& step : steps<TypeParam>()) compared.insert(form(step.attribute, step.op, step.argCount));
  for (std::string const& form : formsOf(type)) EXPECT_TRUE(compared.contains(form)) << form << " is not compared";
  for (Nox::NoxAttr const& attr : type.attrs()) {
    Nox::AttrRow const* const row = Nox::attrRow(type, attr.name().view());
    ASSERT_NE(row, nullptr) << attr.name();
    EXPECT_EQ(attr.introspectionFlags().value(), row->ops) << attr.name();
  }
}

TYPED_TEST_P(OperationByName, ThatChangesIsRefusedThroughAPointerToConst) {
  Side side;
  Ptr<PtrInterface const> const machine = side.machine<TypeParam>();
  Lines done;
  for (Step const& step : steps<TypeParam>()) {
    if (step.op == Op::kRead) continue;
    watch(done, [&] {
      try {
        GenericIf(machine).attributeOp(step.attribute, step.op, step.arguments(side));
        ADD_FAILURE() << "accepted: " << form(step.attribute, step.op, step.argCount);
      } catch (Nox::ConstException const& refused) {
        EXPECT_STREQ(refused.what(), "attempting to modify a const instance");
      }
    });
  }
  EXPECT_THAT(done, testing::IsEmpty());
}

REGISTER_TYPED_TEST_SUITE_P(OperationByName, DoesWhatTheMemberDoes, IsComparedForEveryRow,
                            ThatChangesIsRefusedThroughAPointerToConst);

}  // namespace ByName
