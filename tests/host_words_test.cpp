#include "executors/HostWordsExecutor.h"
#include "fakes.h"

#include <gmock/gmock.h>

namespace zfslib::executors {
namespace {

using testing::ElementsAre;

const std::string bare = "/usr/bin/env -i ";
const std::string full = bare + "PATH=" + std::string(toolFolders) + " LC_ALL=C ";

TEST(HostWords, ToolsAreFoundInTheSbinFolders) {
    const struct {
        std::string given;
        std::string run;
    } rows[] = {
        {bare + "zpool list -o name,size,alloc", full + "zpool list -o name,size,alloc"},
        {bare + "zfs set a:b='c d' 'p/x y' 2>&1", full + "zfs set a:b='c d' 'p/x y' 2>&1"},
        {bare + "ls -la /dev/zvol/dsk/p/v", full + "ls -la /dev/zvol/dsk/p/v"},
        {bare + "zpool", full + "zpool"},
        {full + "zpool list", full + "zpool list"},
        {bare + "zfsx list", bare + "zfsx list"},
        {bare + "-S zfs list", bare + "-S zfs list"},
        {"zfs list", "zfs list"},
        {"", ""},
    };
    for (const auto& row : rows) {
        const FakeExecutor host;
        host.Answer(row.run, "answer to " + row.given);
        // Around itself, too: nothing is put into other words twice.
        EXPECT_EQ("answer to " + row.given, HostWordsExecutor(HostWordsExecutor(host))(row.given));
        EXPECT_THAT(host.Commands(), ElementsAre(row.run));
    }
}

} // namespace
} // namespace zfslib::executors
