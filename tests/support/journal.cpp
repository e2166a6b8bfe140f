#include "tests/support/journal.h"

#include <algorithm>

namespace test {

using namespace automation;

namespace {

std::string shown(const Variant& value) {
  if (value.isNull()) return "(null)";
  if (value.isEmpty()) return "(empty)";
  if (value.as<ObjectRef>() != nullptr) return "(object)";
  if (value.asArray() != nullptr) return "(array)";
  return toUtf8(toText(value));
}

class Proxy final : public Object {
 public:
  Proxy(ObjectRef inner, std::string label, std::shared_ptr<Journal> journal)
      : inner_(std::move(inner)), label_(std::move(label)), journal_(std::move(journal)) {}

  Variant read(TextView member, Arguments arguments) override {
    return journal_->pass(place(member, arguments),
                          [&] { return wrapped(member, inner_->read(member, arguments)); });
  }

  void write(TextView member, Arguments arguments, const Variant& value) override {
    const auto* object = value.as<ObjectRef>();
    const Variant passed = object != nullptr ? Variant(unwrapped(*object)) : value;
    const std::string what = object != nullptr ? labelOf(*object) : shown(value);
    journal_->pass(place(member, arguments) + " = " + what,
                   [&] { inner_->write(member, arguments, passed); });
  }

  Variant call(TextView member, Arguments arguments) override {
    std::string line = label_ + "." + toUtf8(member) + "(";
    for (const Variant& argument : arguments) {
      if (line.back() != '(') line += ", ";
      line += shown(argument);
    }
    return journal_->pass(line + ")", [&] { return wrapped(member, inner_->call(member, arguments)); });
  }

  std::unique_ptr<Walk> children() override;

 private:
  static ObjectRef unwrapped(const ObjectRef& object) {
    const auto proxy = std::dynamic_pointer_cast<Proxy>(object);
    return proxy != nullptr ? proxy->inner_ : object;
  }
  static std::string labelOf(const ObjectRef& object) {
    const auto proxy = std::dynamic_pointer_cast<Proxy>(object);
    return proxy != nullptr ? proxy->label_ : object != nullptr ? "(object)" : "(nothing)";
  }
  std::string place(TextView member, Arguments index) const {
    return index.empty() ? label_ + "." + toUtf8(member) : label_ + "[" + shown(index[0]) + "]";
  }
  Variant wrapped(TextView member, Variant value) const {
    const auto* object = value.as<ObjectRef>();
    return object != nullptr ? Variant(journal_->wrap(*object, label_ + "." + toUtf8(member))) : value;
  }

  ObjectRef inner_;
  std::string label_;
  std::shared_ptr<Journal> journal_;
};

class ProxyWalk final : public Walk {
 public:
  ProxyWalk(std::unique_ptr<Walk> inner, std::string label, std::shared_ptr<Journal> journal)
      : inner_(std::move(inner)), label_(std::move(label)), journal_(std::move(journal)) {}

  ObjectRef next() override {
    return journal_->pass("next of " + label_, [&] {
      ObjectRef child = inner_->next();
      if (child == nullptr) return child;
      std::string name;
      try {
        name = toUtf8(toText(child->read(u"Name", {})));
      } catch (const Failure&) {
        name = "?";
      }
      return journal_->wrap(std::move(child), label_ + "/" + name);
    });
  }

 private:
  std::unique_ptr<Walk> inner_;
  std::string label_;
  std::shared_ptr<Journal> journal_;
};

std::unique_ptr<Walk> Proxy::children() {
  return journal_->pass("children of " + label_, [&]() -> std::unique_ptr<Walk> {
    return std::make_unique<ProxyWalk>(inner_->children(), label_, journal_);
  });
}

}  // namespace

void Journal::failAt(const std::string& beginning, std::size_t first, std::size_t last) {
  fails = [=, seen = std::size_t{0}](std::size_t, const std::string& line) mutable {
    if (!line.starts_with(beginning)) return false;
    ++seen;
    return seen >= first && seen <= last;
  };
}

std::vector<std::string> Journal::linesWith(const std::string& beginning) const {
  std::vector<std::string> found;
  for (const std::string& line : lines) {
    if (line.starts_with(beginning)) found.push_back(line);
  }
  return found;
}

std::string Journal::excerpt(const std::string& from, const std::string& to,
                             const std::vector<std::pair<std::string, std::string>>& replacements) const {
  std::string text;
  const auto first = std::find(lines.begin(), lines.end(), from);
  if (first == lines.end()) return "no line '" + from + "'";
  const auto last = std::find(first, lines.end(), to);
  if (last == lines.end()) return "no line '" + to + "' behind '" + from + "'";
  for (auto line = first; line <= last; ++line) text += *line + "\n";
  for (const auto& [what, with] : replacements) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
      text.replace(at, what.size(), with);
  }
  return text;
}

ObjectRef Journal::wrap(ObjectRef object, std::string label) {
  if (object == nullptr) return nullptr;
  return std::make_shared<Proxy>(std::move(object), std::move(label), shared_from_this());
}

ObjectRef Journal::getObject(TextView moniker, const std::function<ObjectRef()>& serve) {
  const std::string path = toUtf8(moniker);
  std::string label = "WMI";
  if (path.starts_with("IIS://")) label = path.substr(std::min(path.find('/', 6), path.size()));
  return wrap(pass("GetObject " + path, serve), label);
}

ObjectRef Journal::createObject(TextView programmaticId, const std::function<ObjectRef()>& serve) {
  const std::string id = toUtf8(programmaticId);
  const std::string kind = id.substr(id.find('.') + 1);
  ObjectRef object = pass("CreateObject " + id, serve);
  return wrap(std::move(object), kind + std::to_string(++created_[kind]));
}

std::string operations(const std::string& text) {
  std::string lines;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t end = std::min(text.find_first_of(";\n", at), text.size());
    const std::size_t first = text.find_first_not_of(' ', at);
    if (first < end) lines += text.substr(first, end - first) + "\n";
    at = end + 1;
  }
  return lines;
}

}  // namespace test
