#include "inspect/TextView.h"

#include "inspect/Escape.h"
#include "inspect/HealthView.h"
#include "inspect/MissingTools.h"
#include "inspect/PlanView.h"
#include "inspect/Size.h"
#include "inspect/StateText.h"
#include "inspect/Table.h"

#include <variant>

namespace inspect {
namespace {

using zfslib::Zpool;

void AddProperties(Table& table, const std::vector<PropertyEntry>& properties) {
    for (const PropertyEntry& property : properties) {
        std::string value = property.text;
        if (value.empty())
            value = "-";
        std::string source = property.source;
        if (!property.inheritedFrom.empty())
            source += " from " + property.inheritedFrom;
        table.Add({property.name, value, source, property.failed ? "(not understood)" : ""});
    }
}

/// What the tool prints; beside it, where deduplication makes a difference, what fits in all.
void PrintSpace(std::ostream& out, const PoolEntry& entry) {
    Table space;
    const auto addSpace = [&](const char* title, const std::optional<std::uint64_t>& bytes,
                              const std::optional<std::uint64_t>& corrected) {
        const bool differs = entry.pool && corrected != bytes;
        const std::string text =
            corrected ? FormatSize(*corrected) + " corrected for deduplication"
                      : "corrected for deduplication unknown: " + Fold(entry.spaceError);
        space.Add({title, bytes ? FormatSize(*bytes) : "-", differs ? text : ""});
    };
    const zfslib::PoolSpace& pool = entry.space;
    addSpace("size", pool.size, entry.size);
    addSpace("allocated", pool.allocated, entry.allocated);
    std::optional<std::uint64_t> free;
    if (pool.size && pool.allocated && *pool.size >= *pool.allocated)
        free = *pool.size - *pool.allocated;
    addSpace("free", free, entry.available);
    space.Print(out, indentStep);
}

void PrintPool(std::ostream& out, const PoolEntry& entry) {
    const std::string state = entry.pool     ? Zpool::StateToString(entry.pool->state)
                              : entry.health ? entry.health->stateText
                                             : "";
    Table heading;
    heading.Add({entry.name, state.empty() ? "unknown" : state});
    heading.Print(out, 0);
    PrintField(out, "error", Fold(entry.error));
    if (!entry.pool && entry.health)
        PrintAdvice(out, *entry.health);
    PrintSpace(out, entry);
    if (entry.health) {
        Table devices;
        AddDevices(devices, *entry.health, DeviceChoice::All, "devices");
        devices.Print(out, indentStep);
    }

    if (entry.properties.empty())
        return;
    Table properties;
    AddProperties(properties, entry.properties);
    out << std::string(indentStep, ' ') << "properties\n";
    properties.Print(out, 2 * indentStep);
}

void AddDataset(Table& table, const DatasetEntry& entry) {
    const std::string label = Indented(entry.depth, entry.label);
    if (entry.dataset == nullptr)
        return table.Add({label, "(not shown)"});
    const zfslib::ZfsDataset& dataset = *entry.dataset;
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

    void operator()(const HealthReport& report) const { PrintHealthText(out, report); }

    void operator()(const ToolsReport& report) const {
        if (report.installed)
            out << "The ZFS tools are installed.\n";
        else
            out << "The ZFS tools are not installed. Searched: " << SearchedFolders() << ".\n";
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
            if (report.withProperties && report.datasets[i].dataset != nullptr)
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

    void operator()(const StateReport& report) const { PrintStateText(out, report); }
    void operator()(const PlanReport& report) const { PrintPlanText(out, report); }

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
        const DatasetProperties properties = report.Properties(*entry.dataset);
        Table table;
        AddProperties(table, properties.native);
        AddProperties(table, properties.user);
        AddProperties(table, properties.quotas);
        // Deeper than the children, so that properties are not taken for them.
        table.Print(out, Indentation(entry.depth) + 2 * indentStep);
    }
};

} // namespace

void PrintText(std::ostream& out, const Report& report) {
    std::visit(TextPrinter{out}, report);
}

} // namespace inspect
