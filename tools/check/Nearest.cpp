#include "check/Nearest.h"

#include <algorithm>
#include <utility>

#include "check/IniLines.h"

namespace ZceCheck {

namespace {

constexpr std::size_t SHORT_TEXT = 3;
constexpr std::size_t NEAREST = 3;

std::size_t Allowed(std::string_view text) {
    return text.size() <= SHORT_TEXT ? 1 : 2;
}

}  // namespace

std::size_t Distance(std::string_view left, std::string_view right) {
    const std::string a = Lowered(left);
    const std::string b = Lowered(right);
    std::vector<std::vector<std::size_t>> cost(a.size() + 1,
                                               std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1,
                                   cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[a.size()][b.size()];
}

std::vector<std::string> Nearest(std::string_view text,
                                 const std::vector<std::string>& candidates) {
    std::vector<std::pair<std::size_t, const std::string*>> near;
    const std::size_t allowed = Allowed(text);
    for (const std::string& candidate : candidates) {
        if (candidate.size() > text.size() + allowed || text.size() > candidate.size() + allowed) {
            continue;
        }
        if (const std::size_t distance = Distance(text, candidate); distance <= allowed) {
            near.emplace_back(distance, &candidate);
        }
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<std::string> names;
    for (const auto& [distance, name] : near) {
        if (names.size() < NEAREST) {
            names.push_back(*name);
        }
    }
    return names;
}

}  // namespace ZceCheck
