#include "ratio.h"

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace vardo_bench {

static std::vector<std::pair<std::string, std::string>>& pairs()
{
    static std::vector<std::pair<std::string, std::string>> p;
    return p;
}

void addPair(const char* ours, const char* anchor) { pairs().emplace_back(ours, anchor); }

namespace {
// Keeps each benchmark's CPU time per iteration (steadier than wall time on a busy machine) while passing everything on to the console.
class Collector : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> times;
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& r : runs)
            if (r.run_type == Run::RT_Iteration && !r.error_occurred) {
                // Also keyed by name and arguments alone, so that a benchmark given a
                // longer minimum time still pairs by its plain name.
                std::string name = r.run_name.function_name;
                if (!r.run_name.args.empty())
                    name += "/" + r.run_name.args;
                times[name] = r.GetAdjustedCPUTime();
                times[r.benchmark_name()] = r.GetAdjustedCPUTime();
            }
        ConsoleReporter::ReportRuns(runs);
    }
};
} // namespace

int runAndReport(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    Collector c;
    benchmark::RunSpecifiedBenchmarks(&c);
    std::printf("\n");
    for (const auto& p : pairs()) {
        auto a = c.times.find(p.first), b = c.times.find(p.second);
        if (a == c.times.end() || b == c.times.end() || b->second <= 0)
            continue;
        std::printf("ratio %-40s %8.3f  (%s / %s)\n", p.first.c_str(), a->second / b->second,
                    p.first.c_str(), p.second.c_str());
    }
    benchmark::Shutdown();
    return 0;
}

} // namespace vardo_bench
