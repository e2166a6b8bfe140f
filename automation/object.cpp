#include "automation/object.h"

namespace automation {
namespace {

// Copies the reference, which keeps the object alive until the call returns.
ObjectRef required(const ObjectRef& object) {
  if (object == nullptr) failObjectNotSet();
  return object;
}

}  // namespace

Variant read(const ObjectRef& object, TextView member) {
  return required(object)->read(member, {});
}

void write(const ObjectRef& object, TextView member, const Variant& value) {
  required(object)->write(member, {}, value);
}

std::unique_ptr<Walk> children(const ObjectRef& object) {
  return required(object)->children();
}

Variant readIndexed(const ObjectRef& object, TextView member, Variant index) {
  return required(object)->read(member, {&index, 1});
}

void writeIndexed(const ObjectRef& object, TextView member, Variant index, const Variant& value) {
  required(object)->write(member, {&index, 1}, value);
}

void writeWith(const ObjectRef& object, TextView member, Arguments arguments, const Variant& value) {
  required(object)->write(member, arguments, value);
}

Variant callWith(const ObjectRef& object, TextView member, Arguments arguments) {
  return required(object)->call(member, arguments);
}

Variant callByReference(const ObjectRef& object, TextView member, Variant& argument) {
  return required(object)->call(member, {&argument, 1});
}

Variant MemberlessObject::read(TextView member, Arguments) {
  failMember(member, source_);
}

void MemberlessObject::write(TextView member, Arguments, const Variant&) {
  failMember(member, source_);
}

Variant MemberlessObject::call(TextView member, Arguments) {
  failMember(member, source_);
}

std::unique_ptr<Walk> MemberlessObject::children() {
  failMember(u"(children)", source_);
}

}  // namespace automation
