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
        answered_.assign(names_.size(), false);
    }

    [[nodiscard]] std::optional<std::size_t> Find(std::string_view name) const {
        const auto found = positions_.find(name);
        if (found == positions_.end())
            return std::nullopt;
        return found->second;
    }

    /// Whether the name was asked for by itself, or in a batch that could be used. It is in no
    /// further batch: a caller that asks for it again and again, or in an order of its own, is not
    /// to make each of its commands one for hundreds of datasets.
    [[nodiscard]] bool IsAnswered(std::size_t position) const { return answered_[position]; }
    void SetAnswered(std::size_t position, std::size_t count = 1) {
        const auto first = answered_.begin() + static_cast<std::ptrdiff_t>(position);
        std::fill_n(first, count, true);
    }

    [[nodiscard]] std::size_t Size() const { return names_.size(); }
    std::string_view operator[](std::size_t position) const { return names_[position]; }

private:
    std::string text_;
    std::vector<std::string_view> names_; // views of text_, as are the keys of positions_
    std::vector<bool> answered_;          // by position in names_
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
    /// Values are printed raw, so one with newlines looks like rows of other datasets, and whoever
    /// may set a property of a dataset chooses what they say. They are told apart by where the
    /// SOURCE stands: two blanks in front of it, at the column that the header has it in.
    ///
    ///     NAME       PROPERTY  VALUE                               SOURCE
    ///     tank/home  org:x     1  local
    ///     tank/vol  readonly  on  -  local
    ///     tank/vol   type      volume                              -
    ///
    /// The tool makes the value column as wide as the widest value of all, newlines and what
    /// follows them included, and pads to it. A value with newlines is at most as long as the
    /// column is wide, so each of its lines but the first has less than that width, at the line's
    /// very beginning, and the first ends before the column does. On the last line the padding and
    /// the true SOURCE follow; it begins left of its column by the columns in front of it, at
    /// least. In its text, "inherited from NAME" at most, are no two blanks in a row: NAME is an
    /// ancestor of a dataset with a plain name. So no line of such a value has a SOURCE in its
    /// place, and every line that has one is a true row, printed for the dataset it begins with.
    /// (Nor have the few numbers that are wider than the column that the tool plans for them: they
    /// only make a command more.)
    ///
    /// A line without one belongs to the dataset of the row in front of it, or of the row behind
    /// it; where these are two, neither is trusted. The rows of a dataset that no such line touches
    /// are all there.
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
        const Block block = std::exchange(blocks_[position - first_], {});
        std::optional<std::string> answer;
        if (!block.rows.empty() && block.isWhole) {
            answer.emplace().reserve(header_.size() + block.rows.size());
            answer->append(header_).append(block.rows);
        }
        if (position - first_ + 1 == blocks_.size())
            Clear();
        return answer;
    }

    [[nodiscard]] std::size_t Size() const { return text_.size(); }

    /// How many bytes the single commands would not have had: blanks that pad each row to the
    /// widest value of other datasets.
    [[nodiscard]] std::size_t Padding() const {
        std::size_t padding = 0;
        for (const Block& block : blocks_)
            padding += block.rowCount * (sourceColumn_ - gap.size() - block.valueEnd);
        return padding;
    }

    void Clear() {
        blocks_.clear();
        std::string().swap(text_);
    }

private:
    /// The rows of one dataset.
    struct Block {
        std::string_view rows; ///< of text_; empty once it was used
        bool isWhole = true;   ///< every line is a row of this dataset, and no row is missing
        std::size_t rowCount = 0;
        std::size_t valueEnd = 0; ///< of the widest value
    };

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
        sourceColumn_ = header_.find("SOURCE");

        bool isWhole = true; // nothing but rows since the last row
        while (!rest.empty()) {
            const char* const row = rest.data();
            line = util::ConsumeLine(rest);
            if (!HasSourceInPlace(line)) {
                isWhole = false;
                continue;
            }
            std::string_view words = line;
            const std::string_view name = util::ConsumeWord(words);
            const bool startsBlock =
                blocks_.size() < count && name == names[first_ + blocks_.size()];
            if (!startsBlock && (blocks_.empty() || name != names[first_ + blocks_.size() - 1]))
                return "a row is about none of the datasets in turn";
            if (!isWhole && !blocks_.empty())
                blocks_.back().isWhole = false;
            if (startsBlock)
                blocks_.push_back({{row, 0}, isWhole, 0, 0});
            isWhole = true;
            Block& block = blocks_.back();
            block.rows = {block.rows.data(),
                          static_cast<std::size_t>(rest.data() - block.rows.data())};
            ++block.rowCount;
            block.valueEnd =
                std::max(block.valueEnd, line.find_last_not_of(' ', sourceColumn_ - 1) + 1);
        }
        if (blocks_.size() != count)
            return "a dataset is missing";
        blocks_.back().isWhole = blocks_.back().isWhole && isWhole;
        const bool anyWhole = std::any_of(blocks_.begin(), blocks_.end(),
                                          [](const Block& block) { return block.isWhole; });
        return anyWhole ? nullptr : "no dataset's rows have their sources in place";
    }

    [[nodiscard]] bool HasSourceInPlace(std::string_view line) const {
        return line.size() > sourceColumn_ && line[sourceColumn_] != ' ' &&
               line.substr(sourceColumn_ - gap.size(), gap.size()) == gap;
    }

    static constexpr std::string_view gap = "  "; // between two columns

    std::string text_;
    std::string_view header_; // of text_, with its newline
    std::size_t sourceColumn_ = 0;
    std::vector<Block> blocks_; // one for each name
    std::size_t first_ = 0;
};

/// How many datasets to ask for at once. A batch that fails is narrowed down, as in a binary
/// search, to the dataset that spoils it; the sizes double again with every batch that succeeds.
/// Where not even pairs succeed, batches are tried ever more rarely.
///
/// One wide value widens every row of its batch: 8,000 bytes in one of 256 datasets make 135 MB of
/// 2 MB. So a batch is kept so small that the widest rows seen so far would not give more than
/// `leastCredit` of text, or as much as narrow batches have given since, up to `mostCredit`.
class Pace {
public:
    explicit Pace(std::size_t most) : most_(most), size_(most) {}

    [[nodiscard]] std::size_t Count(std::size_t position) const {
        if (position < spoiledEnd_)
            return std::max<std::size_t>((spoiledEnd_ - position) / 2, 1);
        return pause_ == 0 ? std::min(size_, TextAllows()) : 1;
    }

    void Single() {
        if (pause_ > 0)
            --pause_;
    }

    /// `padding` is what of the text the single commands would not have had.
    void Succeeded(std::size_t count, std::size_t text, std::size_t padding) {
        size_ = Doubled(size_);
        nextPause_ = 1;
        widest_ = std::max(widest_, text / count);
        const std::size_t earned = text - padding;
        credit_ = credit_ + earned > padding ? credit_ + earned - padding : 0;
        credit_ = std::clamp(credit_, leastCredit, mostCredit);
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
    static constexpr std::size_t leastCredit = std::size_t{4} << 20;
    static constexpr std::size_t mostCredit = std::size_t{64} << 20;

    [[nodiscard]] std::size_t TextAllows() const {
        return std::max<std::size_t>(credit_ / std::max<std::size_t>(widest_, 1), 1);
    }

    [[nodiscard]] std::size_t Doubled(std::size_t size) const {
        return size > most_ / 2 ? most_ : 2 * size;
    }

    std::size_t most_;
    std::size_t size_;           ///< of the next batch, outside a search
    std::size_t spoiledEnd_ = 0; ///< the end of the narrowest batch that failed
    std::size_t pause_ = 0;      ///< how many single commands to run before the next batch
    std::size_t nextPause_ = 1;
    std::size_t widest_ = 0; ///< bytes for each dataset of the widest batch
    std::size_t credit_ = leastCredit;
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
                if (!names_.IsAnswered(position))
                    pace_.Single();
                names_.SetAnswered(position);
                return executor_(command);
            }
            if (RunBatch(position, count))
                answer = answer_.Take(position);
        }
        return *std::move(answer);
    }

    /// At most `count` names that are left in the list and fit into one command line.
    [[nodiscard]] std::size_t CountThatFits(std::size_t position, std::size_t count) const {
        count = std::min(count, names_.Size() - position);
        std::size_t length = getCommand.size();
        for (std::size_t fitting = 0; fitting < count; ++fitting) {
            length += names_[position + fitting].size() + 1;
            if (length - 1 > commandLength_ || names_.IsAnswered(position + fitting))
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
            if (error == nullptr) {
                names_.SetAnswered(position, count);
                pace_.Succeeded(count, answer_.Size(), answer_.Padding());
                return true;
            }
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

    /// A hung tool or a dead host is to cost one more time-out, not one for each halving.
    static bool IsHopeless(const std::exception& error) {
        using Kind = posix::CCommandFailure::Kind;
        const auto* failure = dynamic_cast<const posix::CCommandFailure*>(&error);
        if (failure == nullptr)
            return false;
        const Kind kind = failure->GetKind();
        return kind == Kind::TimeOut || kind == Kind::Stopped || kind == Kind::NotConnected ||
               kind == Kind::ConnectionLost;
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
