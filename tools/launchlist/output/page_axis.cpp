#include "tools/launchlist/output/page_axis.h"

#include <algorithm>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/report_wording.h"
#include "util/string_util.h"

namespace launchlist {

namespace {

constexpr Milliseconds kSecond = 1000;
constexpr Milliseconds kMinute = 60 * kSecond;
constexpr Milliseconds kHour = 60 * kMinute;
constexpr Milliseconds kDay = 24 * kHour;
constexpr Milliseconds kSteps[] = {
    1,           10,           100,       kSecond,   5 * kSecond, 15 * kSecond, kMinute,
    5 * kMinute, 15 * kMinute, kHour,     3 * kHour, 6 * kHour,   12 * kHour,   kDay,
    2 * kDay,    7 * kDay,     30 * kDay, 90 * kDay, 365 * kDay};
constexpr Milliseconds kMaxTicks = 8;
constexpr std::size_t kMaxMarks = 40;

double PartOf(const Report& report, Milliseconds time)
{
    const Milliseconds span = std::max<Milliseconds>(*report.last - *report.first, 1);
    return static_cast<double>(std::clamp(time, *report.first, *report.last) - *report.first) /
           static_cast<double>(span);
}

std::string Percent(const Report& report, Milliseconds time)
{
    return string_format("%.2f%%", 100 * PartOf(report, time));
}

// "15:30", "15:30:05", or the day where that is enough.
std::string TickLabel(Milliseconds time, Milliseconds step)
{
    const std::string text = FormatTimeStamp(time);
    if (step >= kDay || (time % kDay == 0 && step >= kHour)) {
        return text.substr(5, 5);
    }
    return text.substr(11, step >= kMinute ? 5 : step >= kSecond ? 8 : 12);
}

std::string Line(const Report& report, Milliseconds time)
{
    return string_format("M%.1f 0v%d", kBarWidth * PartOf(report, time), kBarHeight);
}

std::string LauncherMark(const Report& report, const Launcher& launcher, Milliseconds time,
                         const char* sign)
{
    if (time < *report.first || time > *report.last) {
        return "";
    }
    return "<text class=\"mark\" x=\"" + Percent(report, time) + "\" y=\"2.3rem\">" + sign +
           "<title>" + html(LauncherText(launcher)) + "</title></text>\n";
}

}  // namespace

std::vector<Milliseconds> TicksOf(Milliseconds first, Milliseconds last)
{
    const auto fits = [&](Milliseconds step) { return (last - first) / step < kMaxTicks; };
    const Milliseconds* const found = std::find_if(std::begin(kSteps), std::end(kSteps), fits);
    const Milliseconds step = found == std::end(kSteps) ? (last - first) / kMaxTicks : *found;
    std::vector<Milliseconds> ticks;
    const Milliseconds rest = ((first % step) + step) % step;
    for (Milliseconds tick = rest == 0 ? first : first - rest + step; tick <= last; tick += step) {
        ticks.push_back(tick);
    }
    return ticks;
}

std::string PageAxis(const Report& report)
{
    const std::vector<Milliseconds> ticks = TicksOf(*report.first, *report.last);
    const Milliseconds step = ticks.size() > 1 ? ticks[1] - ticks[0] : kSecond;
    std::string lines;
    std::string labels;
    for (std::size_t i = 0; i < ticks.size(); ++i) {
        lines += Line(report, ticks[i]);
        labels += "<text" + std::string(i % 2 == 1 ? " class=\"odd\"" : "") + " x=\"" +
                  Percent(report, ticks[i]) + "\" y=\"0.9rem\">" + TickLabel(ticks[i], step) +
                  "</text>\n";
    }
    std::string launcher_lines;
    const std::vector<const Launcher*> launchers = LaunchersOf(report);
    for (std::size_t i = 0; i < std::min(launchers.size(), kMaxMarks); ++i) {
        const Launcher& launcher = *launchers[i];
        launcher_lines += Line(report, launcher.from);
        labels += LauncherMark(report, launcher, launcher.from, "\u25b6");
        if (launcher.end != LauncherEnd::kRunning && launcher.end != LauncherEnd::kUnknown) {
            launcher_lines += Line(report, launcher.to);
            labels += LauncherMark(report, launcher, launcher.to, "\u25a0");
        }
    }
    return "<div class=\"axis\"><svg role=\"img\" aria-label=\"Time in UTC\"><defs><g id=\"g\">"
           "<path class=\"g\" d=\"" +
           lines + "\"/><path class=\"l\" d=\"" + launcher_lines + "\"/></g></defs>\n" + labels +
           "</svg></div>\n";
}

std::string LinesOfAxis()
{
    return "<use href=#g />";
}

}  // namespace launchlist
