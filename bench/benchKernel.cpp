#include "benchKernel.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace velabench {

CKernelCounts::CKernelCounts() {
    ReadInterrupts();
    ReadStolen();
}

// The first line names the processors that have a column; a source's line has its name, a count for
// each of them, and what it is in words.
void CKernelCounts::ReadInterrupts() {
    std::ifstream file("/proc/interrupts");
    std::string line;
    std::getline(file, line);
    std::istringstream head(line);
    std::vector<int> cpus;
    for (std::string word; head >> word;) {
        cpus.push_back(std::stoi(word.substr(3)));  // CPU0
    }
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::string source;
        words >> source;
        std::vector<std::uint64_t> counts;
        for (std::uint64_t count = 0; counts.size() < cpus.size() && words >> count;) {
            counts.push_back(count);
        }
        if (counts.size() != cpus.size()) {
            continue;  // a count of the whole machine
        }
        std::string text;
        for (std::string word; words >> word;) {
            text += ' ' + word;
        }
        for (std::size_t k = 0; k < cpus.size(); ++k) {
            m_interrupts[source + text][cpus[k]] = counts[k];
        }
    }
}

// "cpu1 user nice system idle iowait irq softirq steal ..."
void CKernelCounts::ReadStolen() {
    std::ifstream file("/proc/stat");
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        if (name.size() <= 3 || name.compare(0, 3, "cpu") != 0) {
            continue;
        }
        constexpr int stealColumn = 8;
        std::uint64_t value = 0;
        for (int column = 0; column < stealColumn && words >> value; ++column) {}
        m_stolen[std::stoi(name.substr(3))] = value;
    }
}

void CKernelCounts::PrintSince(const CKernelCounts& before, const char* what, int cpu) const {
    const auto of = [cpu](const std::map<int, std::uint64_t>& counts) {
        const auto found = counts.find(cpu);
        return found == counts.end() ? 0 : found->second;
    };
    std::printf("%s, interrupts:", what);
    for (const auto& [source, counts] : m_interrupts) {
        const auto earlier = before.m_interrupts.find(source);
        const std::uint64_t since =
            of(counts) - (earlier == before.m_interrupts.end() ? 0 : of(earlier->second));
        if (since != 0) {
            std::printf(" %llu of %s;", static_cast<unsigned long long>(since), source.c_str());
        }
    }
    const double stolen = static_cast<double>(of(m_stolen) - of(before.m_stolen));
    std::printf(" stolen by the host: %.0f ms\n",
                stolen * 1000 / static_cast<double>(sysconf(_SC_CLK_TCK)));
}

}  // namespace velabench
