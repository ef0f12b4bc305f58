#include "inspect/TextView.h"

#include "inspect/Escape.h"
#include "inspect/Size.h"

#include <algorithm>
#include <variant>

namespace inspect {
namespace {

using zfslib::Zpool;

using Cells = std::vector<std::string>;

/// Rows of cells in columns that are as wide as their widest cell. Whatever is printed goes
/// through here, and is escaped here.
class Table {
public:
    /// `numberColumns` are set flush right.
    explicit Table(std::vector<std::size_t> numberColumns = {})
        : numberColumns_(std::move(numberColumns)) {}

    void Add(Cells cells) {
        widths_.resize(std::max(widths_.size(), cells.size()));
        for (std::size_t column = 0; column < cells.size(); ++column) {
            cells[column] = Escape(cells[column]);
            widths_[column] = std::max(widths_[column], Columns(cells[column]));
        }
        rows_.push_back(std::move(cells));
    }

    [[nodiscard]] std::size_t Rows() const { return rows_.size(); }

    [[nodiscard]] std::string Line(std::size_t row) const {
        std::string line;
        for (std::size_t column = 0; column < rows_[row].size(); ++column) {
            const std::string& cell = rows_[row][column];
            const std::string padding(widths_[column] - Columns(cell), ' ');
            const bool isNumber = std::find(numberColumns_.begin(), numberColumns_.end(), column) !=
                                  numberColumns_.end();
            line += column == 0 ? "" : "  ";
            line += isNumber ? padding + cell : cell + padding;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        return line;
    }

    void Print(std::ostream& out, std::size_t indent) const {
        for (std::size_t row = 0; row < Rows(); ++row)
            out << std::string(indent, ' ') << Line(row) << '\n';
    }

private:
    std::vector<std::size_t> numberColumns_;
    std::vector<std::size_t> widths_;
    std::vector<Cells> rows_;
};

constexpr std::size_t step = 4; ///< by how much what belongs to a thing is indented below it

std::string Indented(std::size_t depth, const std::string& text) {
    return std::string(step * depth, ' ') + text;
}

void AddProperties(Table& table, const std::vector<PropertyEntry>& properties) {
    for (const PropertyEntry& property : properties) {
        std::string value = property.bytes ? FormatSize(*property.bytes) : property.text;
        if (value.empty())
            value = "-";
        std::string source = property.source;
        if (!property.inheritedFrom.empty())
            source += " from " + property.inheritedFrom;
        table.Add({property.name, value, source, property.failed ? "(not understood)" : ""});
    }
}

void AddSection(Table& table, const std::string& title,
                const std::vector<Zpool::VirtualDevice>& devices) {
    if (devices.empty())
        return;
    table.Add({title});
    for (const Zpool::VirtualDevice& device : devices) {
        table.Add({Indented(1, device.name), Zpool::VirtualDeviceTypeToString(device.type)});
        const bool isSingle = device.devices.size() == 1 && device.devices[0].name == device.name;
        if (!isSingle)
            for (const Zpool::DeviceReference& member : device.devices)
                table.Add({Indented(2, member.name)});
    }
}

void PrintPool(std::ostream& out, const PoolEntry& entry) {
    const Zpool& pool = entry.pool;
    Table heading;
    heading.Add({pool.name, Zpool::StateToString(pool.state)});
    heading.Print(out, 0);

    Table space;
    const auto addSpace = [&](const char* title, const std::optional<std::uint64_t>& bytes) {
        space.Add({title, bytes ? FormatSize(*bytes) : "unknown: " + Fold(entry.spaceError)});
    };
    addSpace("size", entry.size);
    addSpace("allocated", entry.allocated);
    addSpace("available", entry.available);
    space.Print(out, step);

    Table devices;
    AddSection(devices, "devices", pool.devices);
    AddSection(devices, "logs", pool.logs);
    AddSection(devices, "caches", pool.caches);
    AddSection(devices, "metas", pool.metas);
    AddSection(devices, "spares", pool.spares);
    devices.Print(out, step);

    if (entry.properties.empty())
        return;
    Table properties;
    AddProperties(properties, entry.properties);
    out << std::string(step, ' ') << "properties\n";
    properties.Print(out, 2 * step);
}

void AddDataset(Table& table, const DatasetEntry& entry) {
    const zfslib::ZfsDataset& dataset = entry.dataset;
    const std::string label = Indented(entry.depth, entry.label);
    if (entry.isPlaceholder)
        return table.Add({label, "(not shown)"});
    const bool isSnapshot = dataset.type == zfslib::ZfsDataset::snapshot;
    table.Add({label, zfslib::ZfsDataset::TypeToString(dataset.type), FormatSize(dataset.used),
               isSnapshot ? "-" : FormatSize(dataset.avail)});
}

struct TextPrinter {
    std::ostream& out;

    void operator()(const PoolsReport& report) const {
        if (report.pools.empty())
            out << "no pools\n";
        for (const PoolEntry& entry : report.pools) {
            if (&entry != &report.pools.front())
                out << '\n';
            PrintPool(out, entry);
        }
    }

    void operator()(const ToolsReport& report) const {
        out << (report.installed ? "The ZFS tools are installed.\n"
                                 : "The ZFS tools are not installed.\n");
    }

    void operator()(const DatasetsReport& report) const {
        if (report.datasets.empty()) {
            out << "no datasets\n";
            return;
        }
        Table table({2, 3});
        table.Add({"NAME", "TYPE", "USED", "AVAIL"});
        for (const DatasetEntry& entry : report.datasets)
            AddDataset(table, entry);
        out << table.Line(0) << '\n';
        for (std::size_t i = 0; i < report.datasets.size(); ++i) {
            out << table.Line(i + 1) << '\n';
            if (report.withProperties)
                PrintProperties(report, report.datasets[i]);
        }
    }

    void operator()(const VolumeReport& report) const { out << Escape(report.device) << '\n'; }

    void operator()(const LocateReport& report) const {
        Table table;
        for (const LocatedPath& path : report.paths) {
            if (!path.error.empty())
                table.Add({path.path, "unknown: " + Fold(path.error)});
            else if (path.dataset.empty())
                table.Add({path.path, "not on ZFS"});
            else
                table.Add({path.path, "dataset " + path.dataset, "pool " + path.pool});
        }
        table.Print(out, 0);
    }

    void operator()(const ImportableReport& report) const {
        if (report.pools.empty())
            out << "no pools to import\n";
        Table table;
        for (const zfslib::Pool4Import& pool : report.pools)
            table.Add({pool.name, pool.id});
        table.Print(out, 0);
    }

private:
    void PrintProperties(const DatasetsReport& report, const DatasetEntry& entry) const {
        const DatasetProperties properties = report.Properties(entry.dataset);
        Table table;
        AddProperties(table, properties.native);
        AddProperties(table, properties.user);
        AddProperties(table, properties.quotas);
        // Deeper than the children, so that properties are not taken for them.
        table.Print(out, step * (entry.depth + 2));
    }
};

} // namespace

void PrintText(std::ostream& out, const Report& report) {
    std::visit(TextPrinter{out}, report);
}

} // namespace inspect
