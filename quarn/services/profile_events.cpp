// See profile_events.hpp.
#include "services/profile_events.hpp"

#include "ir/region.hpp"
#include "services/report_text.hpp"

#include <qn/timer.hpp>

#include <algorithm>
#include <map>
#include <memory>
#include <unistd.h>

namespace QN::detail {

namespace {

const char* nameOf(RunOutcome outcome) noexcept {
    switch (outcome) {
    case RunOutcome::Changed:
        return "changed";
    case RunOutcome::Failed:
        return "failed";
    default:
        return "unchanged";
    }
}

double microseconds(std::uint64_t ticks) {
    return 1e6 * static_cast<double>(ticks) * Timer::secondsPerTick();
}

double durationOf(const ProfileEvent& event) {
    return microseconds(event.end > event.start ? event.end - event.start : 0);
}

double momentOf(std::uint64_t ticks, const ProfileReport& report) {
    return microseconds(ticks > report.origin ? ticks - report.origin : 0);
}

std::string targetName(const ProfileEvents& events, const ProfileEvent& event,
                       const ProfileReport& report) {
    std::string name(events.targetOf(event));
    if (report.tagFcnsWithLogId && !event.scopeRun) {
        name += '#' + std::to_string(event.run);
    }
    return name;
}

using Number = unsigned long long;

void appendQuotedCsv(std::string& text, std::string_view value) {
    if (value.find_first_of(",\"\r\n") == std::string_view::npos) {
        text += value;
        return;
    }
    text += '"';
    for (const char c : value) {
        text.append(c == '"' ? 2 : 1, c);
    }
    text += '"';
}

// A chunk of exactly as many bytes, a power of two.
void* takeWholeChunk(std::size_t bytes) {
    return takeChunk(bytes);
}

struct Sum {
    std::size_t runs = 0;
    std::size_t changed = 0;
    double microseconds = 0;
};

} // namespace

ProfileEvents::ProfileEvents()
    : known_(static_cast<KnownName*>(takeWholeChunk(knownNames * sizeof(KnownName))), knownNames) {
    std::uninitialized_fill(known_.begin(), known_.end(), KnownName{});
}

ProfileEvents::~ProfileEvents() {
    for (ProfileEvent* const chunk : chunks_) {
        giveChunk(chunk, chunkEvents * sizeof(ProfileEvent));
    }
    giveChunk(known_.data(), knownNames * sizeof(KnownName));
}

void ProfileEvents::grow() {
    if (count_ / chunkEvents == chunks_.size()) {
        chunks_.reserve(chunks_.size() + 1);
        chunks_.push_back(
            static_cast<ProfileEvent*>(takeWholeChunk(chunkEvents * sizeof(ProfileEvent))));
    }
    goTo(count_);
}

// The event there is the next one to begin; without room for it, as at the end of a chunk, grow()
// has to come first.
void ProfileEvents::goTo(std::uint32_t place) noexcept {
    count_ = place;
    if (place / chunkEvents < chunks_.size()) {
        next_ = &at(place);
        chunkEnd_ = chunks_[place / chunkEvents] + chunkEvents;
    } else {
        next_ = chunkEnd_;
    }
}

bool ProfileEvents::prepareToEnd(std::uint64_t run, std::string_view target, std::uint64_t scope) {
    std::uint32_t place = innermost_;
    while (place != none && at(place).run != run) {
        place = at(place).outer;
    }
    if (place == none) {
        return false;
    }
    setInnermost(place);
    learn(target, scope);
    return true;
}

void ProfileEvents::learn(std::string_view name, std::uint64_t scope) {
    KnownName& known = known_[placeOf(name)];
    if (known.name != name.data() || known.scope != scope) {
        known = {scope, name.data(), static_cast<std::uint32_t>(names_.size())};
        names_.emplace_back(name);
    }
}

std::uint64_t ProfileEvents::origin() const noexcept {
    return origin_ != 0 || count_ == 0 ? origin_ : at(0).start;
}

std::vector<ProfileEvents::Ended> ProfileEvents::inOrder() const {
    std::vector<Ended> ended(ended_);
    std::vector<std::uint32_t> depths(count_);
    for (std::uint32_t i = 0; i < count_; ++i) {
        const ProfileEvent& event = at(i);
        depths[i] = event.outer == none ? 0 : depths[event.outer] + 1;
        if (event.ended != 0) {
            ended[event.ended - 1] = {&event, depths[i]};
        }
    }
    return ended;
}

void ProfileEvents::drop() {
    origin_ = origin();
    dropped_ += ended_;
    ended_ = 0;
    std::vector<std::uint32_t> open;
    for (std::uint32_t place = innermost_; place != none; place = at(place).outer) {
        open.push_back(place);
    }
    // Those under way move to the front, outermost first; none moves behind where it was.
    std::uint32_t kept = 0;
    setInnermost(none);
    for (auto place = open.rbegin(); place != open.rend(); ++place) {
        ProfileEvent& event = at(kept) = at(*place);
        event.outer = innermost_;
        setInnermost(kept++);
    }
    goTo(kept);
    forgetManyNames();
}

void ProfileEvents::reset() {
    goTo(0);
    setInnermost(none);
    ended_ = 0;
    dropped_ = 0;
    origin_ = 0;
    forgetManyNames();
}

void ProfileEvents::forgetManyNames() {
    if (names_.size() > knownNames) {
        names_.clear();
        std::fill(known_.begin(), known_.end(), KnownName{});
    }
}

std::string profileTable(const ProfileEvents& events, const ProfileReport& report) {
    std::string text;
    const auto numbered = [&](const char* format, auto value) {
        if (report.recordNumbering) {
            print(text, format, value);
        }
    };
    numbered("%8s ", "record");
    print(text, "%14s %12s %9s %9s %12s %-9s %s\n", "start us", "time us", "nodes", "after",
          "pool bytes", "outcome", "transform and target");
    std::map<std::string_view, Sum> sums;
    Number record = report.firstRecord;
    for (const auto& [event, depth] : events.inOrder()) {
        numbered("%8llu ", record++);
        print(text, "%14.3f %12.3f %9u %9u ", momentOf(event->start, report), durationOf(*event),
              event->nodesBefore, event->nodesAfter);
        if (event->poolAfter == ProfileEvent::noMemory) {
            print(text, "%12s ", "-");
        } else {
            print(text, "%12llu ", static_cast<Number>(event->poolBytesAfter()));
        }
        print(text, "%-9s ", nameOf(event->outcome));
        text.append(std::min<std::size_t>(std::size_t{2} * depth, 40), ' ');
        text.append(event->transformName()).append(event->scopeRun ? " scope " : " ");
        text.append(targetName(events, *event, report)).append(1, '\n');

        Sum& sum = sums[event->transformName()];
        ++sum.runs;
        sum.changed += event->outcome == RunOutcome::Changed ? 1 : 0;
        sum.microseconds += durationOf(*event);
    }

    std::vector<std::pair<std::string_view, Sum>> sorted(sums.begin(), sums.end());
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
        return a.second.microseconds > b.second.microseconds;
    });
    print(text, "\n%9s %9s %14s %12s  %s\n", "runs", "changed", "time us", "per run", "transform");
    for (const auto& [transform, sum] : sorted) {
        print(text, "%9zu %9zu %14.3f %12.3f  ", sum.runs, sum.changed, sum.microseconds,
              sum.microseconds / static_cast<double>(sum.runs));
        text.append(transform).append(1, '\n');
    }
    return text;
}

std::string profileCsv(const ProfileEvents& events, const ProfileReport& report) {
    std::string text = report.recordNumbering ? "record," : "";
    text += "run,transform,kind,target,start_us,time_us,nodes_before,nodes_after,pool_bytes_before,"
            "pool_bytes_after,outcome\n";
    Number record = report.firstRecord;
    for (const auto& [event, depth] : events.inOrder()) {
        if (report.recordNumbering) {
            print(text, "%llu,", record++);
        }
        print(text, "%llu,", static_cast<Number>(event->run));
        appendQuotedCsv(text, event->transformName());
        text += event->scopeRun ? ",scope," : ",function,";
        appendQuotedCsv(text, targetName(events, *event, report));
        print(text, ",%.3f,%.3f,%u,%u,", momentOf(event->start, report), durationOf(*event),
              event->nodesBefore, event->nodesAfter);
        if (event->poolAfter != ProfileEvent::noMemory) {
            print(text, "%llu,%llu", static_cast<Number>(event->poolBytesBefore()),
                  static_cast<Number>(event->poolBytesAfter()));
        } else {
            text += ',';
        }
        text.append(1, ',').append(nameOf(event->outcome)).append(1, '\n');
    }
    return text;
}

std::string profileTrace(const ProfileEvents& events, const ProfileReport& report) {
    const int process = static_cast<int>(::getpid());
    std::string text = "{\"displayTimeUnit\":\"ns\",\"traceEvents\":[\n";
    print(text,
          "{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":%d,\"tid\":1,\"args\":{\"name\":"
          "\"quarn\"}}",
          process);
    Number record = report.firstRecord;
    for (const auto& [event, depth] : events.inOrder()) {
        text += ",\n{\"name\":";
        appendQuotedJson(text, event->transformName());
        text += event->scopeRun ? ",\"cat\":\"scope\"" : ",\"cat\":\"function\"";
        // Both moments are rounded down, so that a run inside another stays inside it.
        const auto start = static_cast<Number>(1e3 * momentOf(event->start, report));
        const auto end = std::max(start, static_cast<Number>(1e3 * momentOf(event->end, report)));
        print(text, ",\"ph\":\"X\",\"pid\":%d,\"tid\":1,\"ts\":%llu.%03llu,\"dur\":%llu.%03llu",
              process, start / 1000, start % 1000, (end - start) / 1000, (end - start) % 1000);
        text += ",\"args\":{";
        if (report.recordNumbering) {
            print(text, "\"record\":%llu,", record++);
        }
        print(text, "\"run\":%llu,\"target\":", static_cast<Number>(event->run));
        appendQuotedJson(text, targetName(events, *event, report));
        print(text, ",\"nodesBefore\":%u,\"nodesAfter\":%u,\"outcome\":\"%s\"}}",
              event->nodesBefore, event->nodesAfter, nameOf(event->outcome));
        if (event->poolAfter != ProfileEvent::noMemory) {
            const auto counter = [&](Number moment, std::uint64_t bytes) {
                print(text,
                      ",\n{\"name\":\"pools\",\"ph\":\"C\",\"pid\":%d,\"tid\":1,\"ts\":%llu.%03llu,"
                      "\"args\":{\"bytes\":%llu}}",
                      process, moment / 1000, moment % 1000, static_cast<Number>(bytes));
            };
            counter(start, event->poolBytesBefore());
            counter(end, event->poolBytesAfter());
        }
    }
    return text += "\n]}\n";
}

} // namespace QN::detail
