#include "restore/HostStateReader.h"
#include "tests/live/Host.h"
#include "util/str.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

using live::OutputOf;
using live::Quoted;
using namespace zfslib::restore;

/// A host on which users put everything into their properties that they may.
class State : public testing::Test {
protected:
    static void SetUpTestSuite() {
        host = std::make_unique<live::Host>();
        pool = host->MakePool("state", host->Disks(1));
        other = host->MakePool("other", host->Disks(1));
        const std::string a = pool + "/a";
        const std::string row = "\t-\tlocal\n" + pool + "/b\tquota\t1\t-\tlocal";
        OutputOf("zfs set " + Quoted("u:top=for\tall\nbelow") + " " + pool);
        OutputOf("zfs create -u -o canmount=noauto " + a + " && zfs create -u " +
                 Quoted(pool + "/b b") + " && zfs create -s -V 32M " + Quoted(pool + "/b b/vol") +
                 " && zfs create -u -o quota=34567890 " + pool + "/b");
        for (const std::string& value :
             {std::string("u:bytes=\xff\xfe\x01\xc3\xa9\xf0\x9f\x98\x80"), std::string("u:empty="),
              std::string("u:newline=\n"), std::string("u:tab=\t"), std::string("u:dash=-"),
              "u:long=" + std::string(8191, 'x'), "mountpoint=/x" + row, "u:forged=x" + row})
            OutputOf("zfs set -u " + Quoted(value) + " " + a);
        OutputOf("zfs snapshot " + a + "@s && zfs set " + Quoted("u:own=a\tb\nc") + " " + a + "@s");
        OutputOf("zfs send -p " + a + "@s | zfs receive -u " + other + "/got && zfs set u:dash=1 " +
                 other + "/got && zfs inherit mountpoint " + other + "/got");
    }
    static void TearDownTestSuite() { host.reset(); }

    static inline std::unique_ptr<live::Host> host;
    static inline std::string pool;
    static inline std::string other;
};

/// Without the line break that the tool adds; a value may end in others.
std::string Alone(const std::string& column, const std::string& property,
                  const std::string& dataset) {
    std::string text =
        OutputOf("zfs get -Hp -o " + column + " " + property + " " + Quoted(dataset));
    text.pop_back();
    return text;
}

TEST_F(State, IsWhatTheToolsSayOfEachValueAlone) {
    const HostState state = ReadHostState({pool, other}, live::HostExecutor());
    const auto rows = live::RowsOf(
        "zfs get -rHp -t filesystem,volume -o name,property,source all " + pool + " " + other);
    std::size_t count = 0;
    for (const DatasetState& dataset : state.datasets)
        count += dataset.properties.size();
    EXPECT_EQ(count, rows.size());
    for (const auto& row : rows) {
        const DatasetState* dataset = state.FindDataset(row[0]);
        const PropertyValue* property = dataset == nullptr ? nullptr : dataset->Find(row[1]);
        ASSERT_NE(property, nullptr) << row[0] << " " << row[1];
        EXPECT_TRUE(property->IsExact());
        const bool wasReceived = row[0] == other + "/got" && row[1] != "quota";
        if (row[2] == "-" || (row[2] == "default" && !(wasReceived && row[1] == "mountpoint")))
            continue;
        EXPECT_EQ(property->Value(), Alone("value", row[1], row[0])) << row[0] << " " << row[1];
        if (wasReceived) {
            EXPECT_EQ(property->Received().value_or("-"), Alone("received", row[1], row[0]))
                << row[1];
        }
        if (util::str_is_starts_with(row[2], "inherited from ")) {
            EXPECT_EQ("inherited from " + property->InheritedFrom(), row[2]);
        }
    }
}

TEST_F(State, IsSavedAsARecording) {
    const char* const zfsinspect = std::getenv("ZFSINSPECT");
    ASSERT_NE(zfsinspect, nullptr);
    const std::string file = host->Folder() / "saved.rec";
    const std::string rest = " state --json --all " + pool + " " + other;
    const std::string live = OutputOf(zfsinspect + (" --record " + Quoted(file)) + rest);
    EXPECT_EQ(OutputOf(zfsinspect + (" --replay " + Quoted(file)) + rest), live);
}

} // namespace
