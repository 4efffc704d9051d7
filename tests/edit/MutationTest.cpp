// Thousands of damaged documents through the decoder: it answers every one with a record or a
// description, never a crash, and what it reads it writes back the same way.
#include <gtest/gtest.h>

#include "RandomRecords.h"
#include "edit/AdjustmentFields.h"

namespace ql {
namespace {

std::string mutateBytes(std::string text, std::mt19937_64& rng) {
    static const char raw[] = "{}[]\":,0123456789.eE+-tfnul \\\xC3\xA1\xFF\x00";
    static const std::string alphabet(raw, sizeof raw - 1);
    auto pick = [&](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    const int edits = 1 + static_cast<int>(pick(4));
    for (int e = 0; e < edits && !text.empty(); ++e) {
        const size_t at = pick(text.size());
        switch (pick(5)) {
            case 0:
                text[at] = alphabet[pick(alphabet.size())];
                break;
            case 1:
                text.insert(at, 1, alphabet[pick(alphabet.size())]);
                break;
            case 2:
                text.erase(at, 1 + pick(std::min<size_t>(16, text.size() - at)));
                break;
            case 3:
                text.insert(at, text.substr(pick(text.size()), 1 + pick(32)));
                break;
            default:
                text.resize(at);
                break;
        }
    }
    return text;
}

/// Replaces one value somewhere in the tree with a value of another shape.
void mutateTree(Json& node, std::mt19937_64& rng, int depth = 0) {
    auto pick = [&](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    const bool descend = (node.is_object() || node.is_array()) && !node.empty() && pick(4) != 0;
    if (descend) {
        auto it = node.begin();
        std::advance(it, static_cast<std::ptrdiff_t>(pick(node.size())));
        mutateTree(*it, rng, depth + 1);
        return;
    }
    if (depth == 0) return;  // the top level stays an object
    static const Json replacements[] = {nullptr,
                                        true,
                                        "text",
                                        1e308,
                                        -7,
                                        2.5,
                                        Json::array(),
                                        Json::object(),
                                        Json::array({1, "a", nullptr}),
                                        Json::parse(R"({"x": {"y": [[[]]]}})"),
                                        std::uint64_t(18446744073709551615ull)};
    node = replacements[pick(std::size(replacements))];
}

TEST(Mutation, ByteDamageNeverCrashesAndReadsBackStable) {
    std::mt19937_64 rng(42);
    std::vector<std::string> seeds = {
        "{}", R"({"exposure": 0.5, "contrast": 10, "curves": {"master": [{"x": 0, "y": 0},
                {"x": 0.5, "y": 0.6}, {"x": 1, "y": 1}]}})"};
    for (int i = 0; i < 4; ++i)
        seeds.push_back(testing::randomAdjustments(rng).encode(i % 2));

    int accepted = 0, refused = 0;
    for (int i = 0; i < 4000; ++i) {
        const std::string text = mutateBytes(seeds[static_cast<size_t>(i) % seeds.size()], rng);
        std::string error;
        const auto a = Adjustments::decode(text, &error);
        if (!a) {
            EXPECT_FALSE(error.empty());
            ++refused;
            continue;
        }
        ++accepted;
        const auto again = Adjustments::decode(a->encode());
        ASSERT_TRUE(again);
        ASSERT_EQ(*again, *a) << text;
    }
    // Both paths must have been exercised for the test to mean anything.
    EXPECT_GT(accepted, 100);
    EXPECT_GT(refused, 100);
}

TEST(Mutation, StructuralDamageStaysInsideItsKey) {
    std::mt19937_64 rng(1234);
    for (int i = 0; i < 1500; ++i) {
        const Adjustments original = testing::randomAdjustments(rng);
        Json tree = Json::parse(original.encode());
        const Json before = tree;
        mutateTree(tree, rng);

        const auto a = Adjustments::fromJson(tree);
        ASSERT_TRUE(a);
        for (const auto& f : adjustmentFields()) {
            const std::string key(f.key);
            const bool untouched = tree.contains(key) == before.contains(key) &&
                                   (!tree.contains(key) || tree[key] == before[key]);
            if (untouched) {
                ASSERT_TRUE(f.equal(*a, original)) << key << " in " << tree.dump();
            }
        }
        const auto again = Adjustments::decode(a->encode());
        ASSERT_TRUE(again);
        ASSERT_EQ(*again, *a);
    }
}

}  // namespace
}  // namespace ql
