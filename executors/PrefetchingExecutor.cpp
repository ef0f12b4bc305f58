#include "executors/PrefetchingExecutor.h"

#include "executors/internal/ReadAhead.h"

#include <memory>
#include <utility>

namespace zfslib::executors {

CommandExecutor PrefetchingExecutor(CommandExecutor executor, PrefetchingOptions options) {
    if (options.workers == 0 && options.batching.namesPerCommand < 2)
        return executor;
    return [ahead = std::make_shared<ReadAhead>(std::move(executor), options)](
               const std::string& command) { return ahead->Run(command); };
}

CommandExecutor BatchingExecutor(CommandExecutor executor, BatchingOptions options) {
    PrefetchingOptions prefetching;
    prefetching.workers = 0;
    prefetching.batching = options;
    return PrefetchingExecutor(std::move(executor), prefetching);
}

} // namespace zfslib::executors
