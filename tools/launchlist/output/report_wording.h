// The words and figures that the report's text and page share. All of it is printable.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/launchlist/log/report.h"

namespace launchlist {

// "launcher 4711", or "process 4712, a launcher or a child of launcher 4711".
std::string LauncherName(std::int64_t process, const std::optional<std::int64_t>& may_be_child_of);

std::string ReportTitle(const Report& report);

// "launcher 4711: records from 2026-11-21 02:00:00 to 05:04:00 UTC; stopped".
std::string LauncherText(const Launcher& launcher);
const char* NameOf(LauncherEnd end);

// What is wrong with launchers and lists, a sentence for each kind; empty if nothing is.
std::vector<std::string> LauncherProblems(const Report& report);

// The launchers that are selected and wrote records within the time of the report, in their order.
std::vector<const Launcher*> LaunchersOf(const Report& report);

// The name, or "" in quotes if it is empty.
std::string ItemTitle(const ItemReport& item);

// `text` with "..." in the middle if it is wider than `width` columns, which must be at least 5.
std::string Shortened(const std::string& text, std::size_t width);

const char* NameOf(State state);
const char* NameOf(ItemSeverity severity);

// One figure of an item.
struct Figure
{
    std::string label;
    std::string key;    // Its name in the JSON.
    std::string text;   // "unknown" if the log does not say, "-" if there is nothing to measure.
    std::string value;  // As in the JSON, or "null".
};

std::vector<Figure> FiguresOf(const ItemReport& item);

// Remarks about the log, in sentences.
std::vector<std::string> ReportNotes(const Report& report, const std::string& level_file);

// What is wrong with the item, the gravest first; empty if nothing is.
std::vector<std::string> ItemNotes(const ItemReport& item);

// "exit status 3 (12 times), stopped by its launcher (once)".
std::string EndsOf(const ItemReport& item);

// The items, the worst first.
std::vector<const ItemReport*> WorstFirst(const Report& report);

// The items in the order of `report`, or in the order `usual` if it has none. Items that are equal
// in this order keep that of the log.
std::vector<const ItemReport*> InOrder(const Report& report, ItemOrder usual);

}  // namespace launchlist
