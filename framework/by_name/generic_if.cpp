// The generic interface: from a name to the row of an attribute, and the checks that stand before every operation.
#include "framework/by_name/generic_if.h"

#include <algorithm>
#include <charconv>
#include <ostream>

#include "framework/by_name/attr_table.h"
#include "framework/core/entity.h"

namespace Nox {
namespace {

/// The error id of a text with more in it than its value.
constexpr Exception::Id kJunkBehindValue = 12;

std::unique_ptr<GenericIf::AttributeIterator> iterate(GenericIf const& on, AttrRow const* row, std::string_view name) {
  if (row == nullptr) GenericIf::throwOpNotSupportedException(name, GenericIf::Op::kRead);
  if (row->iterate == nullptr) GenericIf::throwBadIndexAttrException(name, {});
  return row->iterate(*on.object(), on.isConst());
}

template <class T>
Ptr<T> notNull(Ptr<T> const& object) {
  return ValidPtr<T>(object);
}

}  // namespace

GenericIf::GenericIf(Ptr<PtrInterface> const& object)
    : object_(notNull(object)), type_(&object_->fwkType()), isConst_(false) {}
GenericIf::GenericIf(Ptr<PtrInterface const> const& object)
    : object_(notNull(object)), type_(&object_->fwkType()), isConst_(true) {}
GenericIfEntity::GenericIfEntity(Ptr<Entity> const& entity) : GenericIf(Ptr<PtrInterface>(entity)) {}
GenericIfEntity::GenericIfEntity(Ptr<Entity const> const& entity) : GenericIf(Ptr<PtrInterface const>(entity)) {}

template <class Asked>
static AttrRow const* rowOfClassOrBase(NoxType const& type, Asked asked) noexcept {
  for (NoxType const* t = &type; t != nullptr; t = t->base)
    if (AttrRow const* const row = ownAttrRow(t->rows(), asked); row != nullptr) return row;
  return nullptr;
}
AttrRow const* attrRow(NoxType const& type, std::string_view attribute) noexcept {
  return rowOfClassOrBase(type, attribute);
}
AttrRow const* attrRow(NoxType const& type, AttributeId id) noexcept { return rowOfClassOrBase(type, id); }

AttributeId GenericIf::attributeId(std::string_view name) const { return type_->attributeId(name); }
String8 GenericIf::attributeString(AttributeId id) const { return String8(type_->attributeName(id)); }
String8 GenericIfEntity::attributeString(AttributeId id) const {
  return static_cast<Entity const&>(*object()).attributeString(id);
}

GenericIf::Value GenericIf::perform(AttrRow const& row, Op op, std::span<Value const> args) const {
  auto& object = const_cast<PtrInterface&>(*object_);
  if (op == Op::kRead)
    return isConst_ && row.holdsParts ? row.on(op)(object, row, args).forReading() : row.on(op)(object, row, args);
  if (isConst_) throwConstException();
  Turn turn;
  return row.on(op)(object, row, args);
}
GenericIf::Value GenericIf::attributeOp(std::string_view name, Op op, std::span<Value const> args) const {
  AttrRow const* const row = attrRow(*type_, name);
  if (row == nullptr || !row->does(op)) throwOpNotSupportedException(name, op);
  return perform(*row, op, args);
}
GenericIf::Value GenericIf::attributeOp(std::string_view name, Op op, std::initializer_list<Value> args) const {
  return attributeOp(name, op, std::span(args.begin(), args.size()));
}
GenericIf::Value GenericIf::attributeOp(AttributeId id, Op op, std::span<Value const> args) const {
  AttrRow const* const row = attrRow(*type_, id);
  if (row == nullptr || !row->does(op)) throwOpNotSupportedException(std::to_string(id), op);
  return perform(*row, op, args);
}
GenericIf::Value GenericIf::attributeOp(AttributeId id, Op op, std::initializer_list<Value> args) const {
  return attributeOp(id, op, std::span(args.begin(), args.size()));
}

std::unique_ptr<GenericIf::AttributeIterator> GenericIf::attributeIteratorConst(AttributeId id) const {
  return iterate(*this, attrRow(*type_, id), std::to_string(id));
}
std::unique_ptr<GenericIf::AttributeIterator> GenericIf::attributeIteratorConst(std::string_view name) const {
  return iterate(*this, attrRow(*type_, name), name);
}

void GenericIf::throwConstException() { throw ConstException("attempting to modify a const instance"); }
void GenericIf::throwTypeException(std::string_view expected, std::string_view found) {
  throw TypeException(String8("expected ") + String8(expected) + ", found " + String8(found));
}
void GenericIf::throwTypeException(std::string_view attribute, std::string_view argument, Exception const& wrong) {
  throw TypeException(String8("attribute ") + String8(attribute) + ", argument " + String8(argument) + ": " +
                      wrong.message());
}
void GenericIf::throwOpNotSupportedException(std::string_view attribute, Op op) {
  throw OpNotSupportedException(String8(kOpNames[static_cast<std::size_t>(op)]) + " not supported by attribute " +
                                String8(attribute));
}
void GenericIf::throwUnknownArgException(std::string_view attribute, std::size_t known, std::size_t given) {
  throw UnknownArgException(
      format("%zu arguments given for attribute %s, which takes %zu", given, String8(attribute).charPtr(), known));
}
void GenericIf::throwBadIndexAttrException(std::string_view attribute, std::string_view expected,
                                           std::string_view found) {
  String8 const where = String8("bad index of attribute ") + String8(attribute);
  String8 const wanted = expected.empty() ? String8(": it takes none") : String8(": expected ") + String8(expected);
  throw BadIndexAttrException(where + wanted + (found.empty() ? String8() : String8(", found ") + String8(found)));
}

std::string_view GenericIf::Value::type() const noexcept {
  static constexpr std::array<std::string_view, 5> kNames{
      "null", TypeName<bool>::value, TypeName<unsigned>::value, TypeName<Seconds>::value, TypeName<String8>::value};
  auto const held = object();
  return held ? held->fwkType().name : kNames[value_.index()];
}

Ptr<PtrInterface const> GenericIf::Value::object() const noexcept {
  if (auto const* found = std::get_if<Ptr<PtrInterface>>(&value_)) return *found;
  if (auto const* found = std::get_if<Ptr<PtrInterface const>>(&value_)) return *found;
  return nullptr;
}

GenericIf::Value GenericIf::Value::forReading() const {
  auto const held = object();
  auto const list = ptrCast<List_ const>(held);
  if (!list) return held ? Value(held) : *this;
  std::vector<Value> elements;
  for (Value const& element : list->elements()) elements.push_back(element.forReading());
  return Ptr<List_>(make<List_>(std::move(elements)));
}

std::ostream& operator<<(std::ostream& out, GenericIf::Value const& value) {
  if (value.isNull()) return out << "null";
  if (auto const object = value.object()) return out << valueToStrepOfRawPtr(object.get());
  if (value.is<bool>()) return out << (value.as<bool>() ? "true" : "false");
  if (value.is<unsigned>()) return out << value.as<unsigned>();
  if (value.is<Seconds>()) return out << value.as<Seconds>();
  return out << value.as<String8>();
}

constinit NoxType GenericIf::List_::noxType{"Nox::GenericIf::List_", nullptr};

std::vector<Name> GenericIf::List_::names(Value const& list) {
  auto const held = ptrCast<List_ const>(list.object());
  if (!held) throwTypeException("List", list.type());
  std::vector<Name> found;
  for (Value const& element : held->elements()) {
    auto const object = element.object();
    AttrRow const* const row = object ? attrRow(object->fwkType(), std::string_view("name")) : nullptr;
    Value const name = row != nullptr ? GenericIf(object).attributeOp("name", Op::kRead) : Value();
    if (!name.is<Name>()) throwTypeException("name", element.type());
    found.push_back(name.as<Name>());
  }
  return found;
}

GenericIf::AttributeIterator::~AttributeIterator() = default;

Ptr<PtrInterface> sequenceToValueOfPtr(std::string_view text) {
  std::string_view digits = text;
  bool const isPrefixed = digits.size() > 2 && digits[0] == '0' && (digits[1] | ' ') == 'x' &&
                          std::isxdigit(static_cast<unsigned char>(digits[2])) != 0;
  if (isPrefixed) digits.remove_prefix(2);
  std::uintptr_t address = 0;
  // A number that no pointer holds is read to its end all the same: it names nothing.
  auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), address, 16);
  if (end != text.data() + text.size()) {
    Exception::IdBitArray ids;
    ids.add(kJunkBehindValue);
    long long const column = end - text.data();
    throw RangeException(format("junk at column %lld deserializing %s", column, String8(text).charPtr()), ids);
  }
  auto* const object = reinterpret_cast<PtrInterface*>(address);
  bool const isObject = error == std::errc() && VFPtrInterface::isLive(object) && !object->isDying();
  return isObject ? Ptr<PtrInterface>(object) : nullptr;
}

}  // namespace Nox
