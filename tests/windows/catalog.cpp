#include "tests/windows/catalog.h"

#include "automation/variant.h"
#include "sqlite/database.h"

namespace test {
namespace {

using namespace automation;

class Catalog : public MemberlessObject {
 public:
  Catalog() : MemberlessObject(u"ADOX.Catalog") {}

  Variant call(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, u"Create")) return MemberlessObject::call(member, arguments);
    requireArguments(member, arguments, 1, 1, source());
    constexpr TextView kKey = u"Data Source=";
    const Text connection = toText(arguments[0]);
    const std::size_t at = connection.find(kKey);
    if (at == Text::npos) failTypeMismatch();
    const std::string file = toUtf8(TextView(connection).substr(at + kKey.size()));
    try {
      sqlite::Database made(std::u8string(file.begin(), file.end()), sqlite::Database::Mode::kCreate,
                            std::chrono::seconds(1));
      // A file without a byte is no database yet.
      made.execute("begin; create table made (it); drop table made; commit");
    } catch (const sqlite::Error& error) {
      throw Failure(static_cast<std::int32_t>(0x80004005), fromUtf8(error.what()), source());
    }
    return {};
  }
};

}  // namespace

ObjectRef makeCatalog() {
  return std::make_shared<Catalog>();
}

}  // namespace test
