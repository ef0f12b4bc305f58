#include "tests/fakes.h"
#include "tests/live/Host.h"
#include "zfstools/ZfsDatasetEnumerator.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace {

using live::OutputOf;
using live::Quoted;
using testing::HasSubstr;
using zfslib::Property;
using zfslib::ZfsDataset;

/// What docs/architecture.md says that the library cannot tell, and what it does then.
class KnownLimits : public testing::Test {
protected:
    static void SetUpTestSuite() {
        host = std::make_unique<live::Host>();
        pool = host->MakePool("limits", host->Disks(1));
    }
    static void TearDownTestSuite() { host.reset(); }

    static std::vector<ZfsDataset> Enumerate(const std::string& root, ZfsDataset::Type type) {
        const InstalledExecutor installed{live::HostExecutor()};
        return zfslib::ZfsDatasetEnumerator().EnumerateType(root, type, live::HostExecutor());
    }

    /// The properties of interest of a file system, or the error.
    static std::string Told(const std::string& root) {
        std::string told;
        const std::string error = ErrorOf([&] {
            const ZfsDataset dataset = Enumerate(root, ZfsDataset::filesystem).at(0);
            const auto add = [&told](const Property<std::string>& property) {
                told += property.GetName() + "=" + property.GetValue() + " " +
                        property.GetSource().text + property.GetSource().inheritedFrom + "; ";
            };
            add(dataset.properties.compression);
            for (const Property<std::string>& property : dataset.properties.userProperties)
                add(property);
        });
        return error.empty() ? told : error;
    }

    static inline std::unique_ptr<live::Host> host;
    static inline std::string pool;
};

TEST_F(KnownLimits, ValuesThatLookLikeSomethingElse) {
    const std::string unreadable = "Failed to parse zfs get: raw size [3]";
    const std::string compression = "compression=on default; ";
    const struct {
        const char* name;
        std::string value;
        std::string told;
    } rows[] = {
        {"empty", "", unreadable},
        {"blanks", " \t", unreadable},
        {"newline", "a\nb", unreadable},
        {"lastNewline", "a\n", unreadable},
        {"tab", "a\tb", compression},
        {"inheritance", "a inherited from b", compression + "x:a=a inheritedb; "},
        {"rows", "a local\nNAME compression gzip-9 local\nNAME x:a b",
         "compression=gzip-9 local; x:a=b local; "},
    };
    for (const auto& row : rows) {
        const std::string name = pool + "/" + row.name;
        OutputOf("zfs create -u -o x:a=" + Quoted(row.value) + " " + name);
        EXPECT_THAT(Told(name), HasSubstr(row.told)) << row.name;
    }
}

TEST_F(KnownLimits, NamesRootsAndSizes) {
    OutputOf("zfs create -u " + pool + "/names && zfs create -u '" + pool +
             "/names/with blank' && zfs create -V 2P -s " + pool + "/huge");
    EXPECT_THAT(Told(pool + "/names"), HasSubstr("'" + pool + "/names/with': dataset does not"));
    EXPECT_THAT(Told(pool + "/huge"), HasSubstr("not applicable to datasets of this type"));
    const ZfsDataset volume = Enumerate(pool + "/huge", ZfsDataset::volume).at(0);
    EXPECT_EQ(volume.properties.volsize.GetText(), "none");
    EXPECT_EQ(volume.properties.volsize.GetState(), zfslib::PropState::Initialized);
}

} // namespace
