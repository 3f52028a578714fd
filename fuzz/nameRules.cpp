// Instrument names and lists of names to the predicates that the rules and the selection share. The
// first byte is the channel, the second the length of the first of two texts.

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "DataType/ZceConfigFile.h"
#include "DataType/ZceSubsInfo.h"
#include "fuzzBoard.h"
#include "fuzzHost.h"
#include "fuzzInput.h"

namespace {

using namespace velafuzz;
using namespace Vela2_U50;

bool IsDigit(char letter) {
    return letter >= '0' && letter <= '9';
}

bool HasDigit(const std::string& text) {
    return std::any_of(text.begin(), text.end(), IsDigit);
}

void CheckOption(const std::string& id) {
    std::string underlying = "kept";
    const bool bOption = OptionExtractSecondClass(id, underlying) == 0;
    FUZZ_CHECK(IsOption(id) == bOption);
    if (!bOption) {
        FUZZ_CHECK(underlying == "kept");
        return;
    }
    FUZZ_CHECK(id.starts_with(underlying) && underlying.size() + 1 < id.size());
    FUZZ_CHECK(IsDigit(underlying.back()) && IsDigit(id[underlying.size() + 1]));
    FUZZ_CHECK(id[underlying.size()] == 'C' || id[underlying.size()] == 'P');
    FUZZ_CHECK(!IsOption(underlying));  // the first such letter
}

void CheckClass(const std::string& id) {
    const CExactBlock block(id);
    const std::string cls = ExtractClass(block.Chars(), block.Size());
    FUZZ_CHECK(id.starts_with(cls) && !HasDigit(cls));
    FUZZ_CHECK(cls.size() == id.size() ||
               std::isalpha(static_cast<unsigned char>(id[cls.size()])) == 0);
}

void CheckTexts(const std::string& text, const std::string& pattern) {
    const std::string compact = RemoveSpace(text);
    FUZZ_CHECK(compact.find(' ') == std::string::npos);
    FUZZ_CHECK(compact.size() + static_cast<size_t>(std::count(text.begin(), text.end(), ' ')) ==
               text.size());
    FUZZ_CHECK(findStringIgnoreCase(text + pattern, pattern));
    FUZZ_CHECK(text.find(pattern) == std::string::npos || findStringIgnoreCase(text, pattern));
    FUZZ_CHECK(pattern.size() <= text.size() || !findStringIgnoreCase(text, pattern));
    FUZZ_CHECK(FindAllTag(text) == findStringIgnoreCase(text, "ALL"));
}

std::string Joined(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items) {
        FUZZ_CHECK(!item.empty() && item.find(',') == std::string::npos);
        text += (text.empty() ? "" : ",") + item;
    }
    return text;
}

void CheckList(const std::string& list, unsigned int channel) {
    CZceConfigFile config("", nullptr, nullptr);
    config.ParseRawInsts(list, channel);
    size_t items = 0;
    for (const ZceSubsInfo_t& rules : config.getArrayReference()) {
        items += rules.vecSubIds.size() + rules.vecSubClasses.size();
    }
    if (channel >= 16) {
        FUZZ_CHECK(items == 0);
        return;
    }
    const ZceSubsInfo_t& rules = config.getArrayReference()[channel];
    FUZZ_CHECK(items == rules.vecSubIds.size() + rules.vecSubClasses.size());
    FUZZ_CHECK(Joined(rules.vecSubIds) == rules.strSubIds);
    FUZZ_CHECK(Joined(rules.vecSubClasses) == rules.strSubClasses);
    FUZZ_CHECK(std::all_of(rules.vecSubIds.begin(), rules.vecSubIds.end(), HasDigit));
    FUZZ_CHECK(std::none_of(rules.vecSubClasses.begin(), rules.vecSubClasses.end(), HasDigit));
    FUZZ_CHECK(rules.strSubIds.size() + rules.strSubClasses.size() <= list.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareLibrary();
    CFuzzInput input(data, size);
    const auto channel = input.Take<unsigned char>();
    const std::string first = input.TakeText(input.Take<unsigned char>());
    const std::string second = input.Rest();
    for (const std::string& text : {first, second}) {
        CheckOption(text);
        CheckClass(text);
        CheckList(text, channel);
    }
    CheckTexts(second, first);
    CheckList(first, 0xFFFFFFFF);
    return 0;
}
