#include "executors/ReplayingExecutor.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace zfslib::executors {

class Replayer::State {
public:
    State(Recording recording, std::string name)
        : exchanges_(std::move(recording.exchanges)),
          isCutShort_(recording.end == Recording::End::CutShort), name_(std::move(name)) {
        for (const Exchange& exchange : exchanges_)
            answers_[exchange.command].exchanges.push_back(&exchange);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    std::string Answer(const std::string& command) {
        const Exchange& exchange = NextExchange(command);
        if (exchange.failure)
            throw std::runtime_error(*exchange.failure);
        return exchange.output;
    }

    std::vector<std::string> UnusedCommands() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::string> unused;
        for (const Exchange& exchange : exchanges_) {
            const Answers& answers = answers_.at(exchange.command);
            if (answers.given == 0 && answers.exchanges.front() == &exchange)
                unused.push_back(exchange.command);
        }
        return unused;
    }

private:
    struct Answers {
        std::vector<const Exchange*> exchanges;
        std::size_t given = 0;
    };

    const Exchange& NextExchange(const std::string& command) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = answers_.find(command);
        if (found == answers_.end())
            throw NoRecordedAnswer("The recording [" + name_ + "] has no answer to the command [" +
                                   command + "]." + (isCutShort_ ? " It is cut short." : ""));
        Answers& answers = found->second;
        const std::size_t next = std::min(answers.given, answers.exchanges.size() - 1);
        ++answers.given;
        return *answers.exchanges[next];
    }

    const std::vector<Exchange> exchanges_;
    const bool isCutShort_;
    const std::string name_;
    mutable std::mutex mutex_;
    std::unordered_map<std::string_view, Answers> answers_; // keyed by the text in exchanges_
};

NoRecordedAnswer::~NoRecordedAnswer() = default;

Replayer::Replayer(const std::string& path, std::uint64_t limit)
    : Replayer(ReadRecording(path, limit), path) {}

Replayer::Replayer(Recording recording, std::string name)
    : state_(std::make_shared<State>(std::move(recording), std::move(name))) {}

Replayer::Replayer(std::vector<Exchange> exchanges, std::string name)
    : Replayer(Recording{std::move(exchanges), {}, {}}, std::move(name)) {}

CommandExecutor Replayer::Executor() const {
    return [state = state_](const std::string& command) { return state->Answer(command); };
}

std::vector<std::string> Replayer::UnusedCommands() const {
    return state_->UnusedCommands();
}

} // namespace zfslib::executors
