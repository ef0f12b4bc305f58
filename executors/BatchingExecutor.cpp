#include "executors/BatchingExecutor.h"

#include "posix/CSimpleCmdExec.h"
#include "util/str.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zfslib::executors {
namespace {

constexpr std::string_view listCommand =
    "/usr/bin/env -i zfs list -rH -o name,avail,used,usedrefreserv -t ";
constexpr std::string_view getCommand = "/usr/bin/env -i zfs get all ";

/// Whether the name is one word to every executor and to `zfs get`. ZFS allows blanks in names,
/// and a recording or a host's own executor may bring anything.
bool IsPlainName(std::string_view name) {
    constexpr std::string_view characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                            "0123456789_.:/@-";
    return !name.empty() && name.front() != '-' &&
           name.find_first_not_of(characters) == std::string_view::npos;
}

/// Whether the command leaves every property of every dataset as it is.
bool OnlyReads(std::string_view command) {
    constexpr std::string_view environment = "/usr/bin/env -i ";
    if (util::str_is_starts_with(command, environment))
        command.remove_prefix(environment.size());
    const std::string_view program = util::ConsumeWord(command);
    const std::string_view verb = util::ConsumeWord(command);
    return program == "df" || ((program == "zfs" || program == "zpool") &&
                               (verb == "list" || verb == "get" || verb == "status" ||
                                verb == "userspace" || verb == "groupspace"));
}

/// The plain names of the latest list, in its order.
class NameList {
public:
    NameList() = default;
    NameList(const NameList&) = delete;
    NameList& operator=(const NameList&) = delete;

    void Assign(std::string listOutput) {
        positions_.clear();
        names_.clear();
        text_ = std::move(listOutput);
        std::string_view rest = text_;
        while (!rest.empty()) {
            const std::string_view line = util::ConsumeLine(rest);
            const std::string_view name = line.substr(0, line.find('\t'));
            if (IsPlainName(name) && positions_.emplace(name, names_.size()).second)
                names_.push_back(name);
        }
    }

    [[nodiscard]] std::optional<std::size_t> Find(std::string_view name) const {
        const auto found = positions_.find(name);
        if (found == positions_.end())
            return std::nullopt;
        return found->second;
    }

    [[nodiscard]] std::size_t Size() const { return names_.size(); }
    std::string_view operator[](std::size_t position) const { return names_[position]; }

private:
    std::string text_;
    std::vector<std::string_view> names_; // views of text_, as are the keys of positions_
    std::unordered_map<std::string_view, std::size_t> positions_;
};

/// The answer to one `zfs get all NAME NEXT ...`, split into the answers to the single commands.
class BatchAnswer {
public:
    BatchAnswer() = default;
    BatchAnswer(const BatchAnswer&) = delete;
    BatchAnswer& operator=(const BatchAnswer&) = delete;

    /// Takes the answer for the `count` names from `first` on. Returns why it cannot be split, and
    /// then holds nothing; nullptr when it was.
    ///
    /// A value may hold a newline and below it a forged row of another dataset. It cannot get into
    /// that dataset's block: every block must begin with the property that the very first row is
    /// about ("type", or where the tool sorts them the first in the alphabet), and have no second
    /// row about it. A forged row in front of a true block either does not begin it so, or makes
    /// the block's own beginning the second.
    const char* Assign(std::string output, const NameList& names, std::size_t first,
                       std::size_t count) {
        Clear();
        text_ = std::move(output);
        first_ = first;
        blocks_.reserve(count);
        const char* error = Split(names, count);
        if (error != nullptr)
            Clear();
        return error;
    }

    /// What the single command for the name at `position` answers; once for each name.
    std::optional<std::string> Take(std::size_t position) {
        if (position < first_ || position - first_ >= blocks_.size())
            return std::nullopt;
        const std::string_view block = std::exchange(blocks_[position - first_], {});
        if (block.empty())
            return std::nullopt;
        std::string answer;
        answer.reserve(header_.size() + block.size());
        answer.append(header_).append(block);
        if (position - first_ + 1 == blocks_.size())
            Clear();
        return answer;
    }

    void Clear() {
        blocks_.clear();
        std::string().swap(text_);
    }

private:
    const char* Split(const NameList& names, std::size_t count) {
        std::string_view rest = text_;
        if (rest.empty() || rest.back() != '\n')
            return "it is cut off";
        std::string_view line = util::ConsumeLine(rest);
        header_ = std::string_view(text_).substr(0, line.size() + 1);
        for (const std::string_view column : {"NAME", "PROPERTY", "VALUE", "SOURCE", ""}) {
            if (util::ConsumeWord(line) != column)
                return "its header is missing";
        }

        std::string_view leadingProperty;
        while (!rest.empty()) {
            const char* const row = rest.data();
            line = util::ConsumeLine(rest);
            const std::string_view name = util::ConsumeWord(line);
            const std::string_view property = util::ConsumeWord(line);
            const bool startsBlock =
                blocks_.size() < count && name == names[first_ + blocks_.size()];
            if (!startsBlock && (blocks_.empty() || name != names[first_ + blocks_.size() - 1]))
                return "a row is about none of the datasets in turn";
            if (leadingProperty.empty())
                leadingProperty = property;
            if (startsBlock != (property == leadingProperty))
                return "a dataset's rows begin or repeat unlike the first one's";
            if (startsBlock)
                blocks_.emplace_back(row, 0);
            std::string_view& block = blocks_.back();
            block = {block.data(), static_cast<std::size_t>(rest.data() - block.data())};
        }
        return blocks_.size() == count ? nullptr : "a dataset is missing";
    }

    std::string text_;
    std::string_view header_;              // of text_, with its newline
    std::vector<std::string_view> blocks_; // of text_, one for each name; empty once it was used
    std::size_t first_ = 0;
};

/// How many datasets to ask for at once. A batch that fails is narrowed down, as in a binary
/// search, to the dataset that spoils it; the sizes double again with every batch that succeeds.
/// Where not even pairs succeed, batches are tried ever more rarely.
class Pace {
public:
    explicit Pace(std::size_t most) : most_(most), size_(most) {}

    [[nodiscard]] std::size_t Count(std::size_t position) const {
        if (position < spoiledEnd_)
            return std::max<std::size_t>((spoiledEnd_ - position) / 2, 1);
        return pause_ == 0 ? size_ : 1;
    }

    void Single() {
        if (pause_ > 0)
            --pause_;
    }

    void Succeeded() {
        size_ = Doubled(size_);
        nextPause_ = 1;
    }

    void Failed(std::size_t position, std::size_t count) {
        spoiledEnd_ = position + count;
        size_ = std::max<std::size_t>(count / 2, 2);
        if (count > 2)
            return;
        pause_ = nextPause_;
        nextPause_ = Doubled(nextPause_);
    }

    void StartList() { spoiledEnd_ = 0; }

private:
    [[nodiscard]] std::size_t Doubled(std::size_t size) const {
        return size > most_ / 2 ? most_ : 2 * size;
    }

    std::size_t most_;
    std::size_t size_;           ///< of the next batch, outside a search
    std::size_t spoiledEnd_ = 0; ///< the end of the narrowest batch that failed
    std::size_t pause_ = 0;      ///< how many single commands to run before the next batch
    std::size_t nextPause_ = 1;
};

class Batcher {
public:
    Batcher(CommandExecutor executor, const BatchingOptions& options)
        : executor_(std::move(executor)), commandLength_(options.commandLength),
          pace_(options.namesPerCommand) {}

    std::string Run(const std::string& command) {
        if (util::str_is_starts_with(command, listCommand))
            return List(command);
        if (util::str_is_starts_with(command, getCommand)) {
            const std::lock_guard<std::mutex> lock(mutex_);
            const std::string_view name = std::string_view(command).substr(getCommand.size());
            if (const std::optional<std::size_t> position = names_.Find(name))
                return Get(command, *position);
        }
        if (OnlyReads(command))
            return executor_(command);
        const DropAnswer dropAfterwards{*this};
        return executor_(command);
    }

private:
    struct DropAnswer {
        Batcher& batcher;
        ~DropAnswer() {
            const std::lock_guard<std::mutex> lock(batcher.mutex_);
            batcher.answer_.Clear();
        }
    };

    std::string List(const std::string& command) {
        std::string output = executor_(command);
        const std::lock_guard<std::mutex> lock(mutex_);
        answer_.Clear();
        names_.Assign(output);
        pace_.StartList();
        return output;
    }

    std::string Get(const std::string& command, std::size_t position) {
        std::optional<std::string> answer = answer_.Take(position);
        while (!answer) {
            const std::size_t count = CountThatFits(position, pace_.Count(position));
            if (count < 2) {
                pace_.Single();
                return executor_(command);
            }
            if (RunBatch(position, count)) {
                pace_.Succeeded();
                answer = answer_.Take(position);
            }
        }
        return *std::move(answer);
    }

    /// At most `count` names that are left in the list and fit into one command line.
    [[nodiscard]] std::size_t CountThatFits(std::size_t position, std::size_t count) const {
        count = std::min(count, names_.Size() - position);
        std::size_t length = getCommand.size();
        for (std::size_t fitting = 0; fitting < count; ++fitting) {
            length += names_[position + fitting].size() + 1;
            if (length - 1 > commandLength_)
                return fitting;
        }
        return count;
    }

    bool RunBatch(std::size_t position, std::size_t count) {
        answer_.Clear();
        std::string command(getCommand.substr(0, getCommand.size() - 1));
        for (std::size_t i = position; i < position + count; ++i)
            command.append(" ").append(names_[i]);
        try {
            const char* error = answer_.Assign(executor_(command), names_, position, count);
            if (error == nullptr)
                return true;
            LogFailure(position, count, error);
            pace_.Failed(position, count);
        } catch (const std::exception& error) {
            LogFailure(position, count, error.what());
            pace_.Failed(position, IsHopeless(error) ? 2 : count);
        }
        return false;
    }

    void LogFailure(std::size_t position, std::size_t count, const char* reason) const {
        _log.dbg("The answer about [%1] and the next %2 datasets cannot be used: %3",
                 names_[position], count - 1, reason);
    }

    /// A hung tool is to cost one more time-out, not one for each halving.
    static bool IsHopeless(const std::exception& error) {
        using Kind = posix::CCommandFailure::Kind;
        const auto* failure = dynamic_cast<const posix::CCommandFailure*>(&error);
        return failure != nullptr &&
               (failure->GetKind() == Kind::TimeOut || failure->GetKind() == Kind::Stopped);
    }

    const CommandExecutor executor_;
    const std::size_t commandLength_;
    std::mutex mutex_; // for all below
    NameList names_;
    BatchAnswer answer_;
    Pace pace_;
};

} // namespace

CommandExecutor BatchingExecutor(CommandExecutor executor, BatchingOptions options) {
    if (options.namesPerCommand < 2)
        return executor;
    return [batcher = std::make_shared<Batcher>(std::move(executor), options)](
               const std::string& command) { return batcher->Run(command); };
}

} // namespace zfslib::executors
