// Encoded keys against a plain model of each type's order, on random values.

#include "host/keys/ordered_key.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unicode/ucol.h>

#include <algorithm>
#include <cmath>
#include <compare>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace tvsort::host {
namespace {

using Random = std::mt19937;
__extension__ using Wide = __int128;

int below(Random& random, int end) {
    return static_cast<int>(random() % static_cast<unsigned>(end));
}

std::string printed(const char* format, auto... values) {
    char text[128];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

template <typename Value>
using Sample = std::pair<std::string, Value>;

int signOf(std::weak_ordering order) {
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

// Random values are mostly close to one another, so that every part of the encoding decides at
// times.
template <typename Value>
void expectOrder(
    const std::string& type, const std::function<Sample<Value>(Random&)>& draw,
    const std::function<int(const Value&, const Value&)>& compare =
        [](const Value& left, const Value& right) { return (left > right) - (left < right); }) {
    KeyForm form;
    for (std::size_t begin = 0; begin <= type.size();) {
        const std::size_t end = std::min(type.find(':', begin), type.size());
        if (begin == 0) form.type.name = type.substr(0, end);
        if (begin > 0) form.type.arguments.push_back(type.substr(begin, end - begin));
        begin = end + 1;
    }
    OrderedKey ascending(form);
    form.isDescending = true;
    OrderedKey descending(form);
    Random random(static_cast<unsigned>(type.size()));
    std::vector<Sample<Value>> samples(300);
    std::generate(samples.begin(), samples.end(), [&] { return draw(random); });
    std::vector<KeyBytes> up;
    std::vector<KeyBytes> down;
    for (const auto& [text, value] : samples) {
        ascending.append(text, up.emplace_back());
        descending.append(text, down.emplace_back());
    }
    for (std::size_t i = 0; i < samples.size(); ++i) {
        for (std::size_t j = 0; j < samples.size(); ++j) {
            const int order = compare(samples[i].second, samples[j].second);
            ASSERT_EQ(signOf(up[i] <=> up[j]), order)
                << type << ": " << samples[i].first << " | " << samples[j].first;
            ASSERT_EQ(signOf(down[j] <=> down[i]), order)
                << type << " descending: " << samples[i].first << " | " << samples[j].first;
            // Filled up with zeros, a key must not become like another one.
            const bool begins = up[i].size() < up[j].size() &&
                                std::equal(up[i].begin(), up[i].end(), up[j].begin());
            ASSERT_FALSE(begins) << type << ": " << samples[i].first;
        }
    }
}

std::string letters(Random& random, std::string_view alphabet, int lengthMax) {
    std::string text;
    for (int left = below(random, lengthMax + 1); left > 0; --left)
        text +=
            alphabet[static_cast<std::size_t>(below(random, static_cast<int>(alphabet.size())))];
    return text;
}

int byUnsigned(const std::string& left, const std::string& right) {
    return signOf(left.compare(right) <=> 0);
}

TEST(OrderedKeys, OfNumbersStandAsTheNumbersDo) {
    for (const char* type : {"int", "int64"}) {
        expectOrder<std::int64_t>(type, [](Random& random) {
            const auto bits = static_cast<std::uint64_t>(random()) << 32 | random();
            const auto number = static_cast<std::int64_t>(bits) >> below(random, 64);
            return Sample<std::int64_t>(std::to_string(number), number);
        });
    }
    for (const char* type : {"int16", "int32", "byte"}) {
        expectOrder<int>(type, [](Random& random) {
            const int number = below(random, 256);
            return Sample<int>(" +" + std::to_string(number) + "\t", number);
        });
    }
    const auto compareFloats = [](const double& left, const double& right) {
        if (std::isnan(left) || std::isnan(right)) return std::isnan(left) - std::isnan(right);
        return (left > right) - (left < right);
    };
    const auto drawFloat = [](Random& random, bool single) {
        const char* const words[] = {"nan", "-nan", "inf", "-inf", "0", "-0", "1e-40", "-1e-40"};
        if (below(random, 3) == 0) {
            const std::string word = words[below(random, 8)];
            return Sample<double>(word, std::strtod(word.c_str(), nullptr));
        }
        // Neighbours that a tolerance would call equal.
        const double number = (1700000000.0 + below(random, 50) / 4e6) * (below(random, 2) * 2 - 1);
        const std::string text = printed("%.17g", number);
        return Sample<double>(text, single ? std::strtof(text.c_str(), nullptr) : number);
    };
    expectOrder<double>(
        "double", [&](Random& random) { return drawFloat(random, false); }, compareFloats);
    expectOrder<double>(
        "float", [&](Random& random) { return drawFloat(random, true); }, compareFloats);
    // Scaled by 10^12.
    expectOrder<Wide>("decimal", [](Random& random) {
        std::string whole = letters(random, "0000123459", 20);
        std::string fraction = letters(random, "00159", 12);
        const bool isNegative = below(random, 2) == 0;
        if (whole.empty() && fraction.empty()) whole = "0";
        Wide value = 0;
        for (const char digit : whole + fraction + std::string(12 - fraction.size(), '0'))
            value = 10 * value + (digit - '0');
        std::string text = (isNegative ? "-" : "") + whole + "." + fraction;
        if (below(random, 4) == 0) {
            text += "e+1";
            value *= 10;
        }
        return Sample<Wide>(text, isNegative ? -value : value);
    });
    expectOrder<double>("size", [](Random& random) {
        const int power = below(random, 4);
        const bool binary = power > 0 && below(random, 2) == 0;
        const double number = below(random, 4000) / 4.0;
        const std::string unit = std::string(" KMG").substr(static_cast<std::size_t>(power), 1);
        return Sample<double>(
            printed("%.2f%s%s", number, power == 0 ? "" : unit.c_str(), binary ? "i" : ""),
            number * std::pow(binary ? 1024 : 1000, power));
    });
    expectOrder<std::int64_t>("hex", [](Random& random) {
        const std::int64_t number = static_cast<std::int64_t>(random()) >> below(random, 32);
        const int sign = below(random, 2) * 2 - 1;
        return Sample<std::int64_t>(printed(sign < 0 ? "-0x%lX" : "00%lx", number), sign * number);
    });
}

TEST(OrderedKeys, OfTextStandAsTheTextDoes) {
    const std::string bytes(
        "\0\1\2\xff"
        "a",
        5);
    for (const char* type : {"text", "string", "text:9"}) {
        expectOrder<std::string>(
            type,
            [&](Random& random) {
                const std::string text = letters(random, bytes, 5);
                return Sample<std::string>(text, text);
            },
            byUnsigned);
    }
    expectOrder<std::string>(
        "text:nocase",
        [](Random& random) {
            const std::string text = letters(random, "aAbB", 4);
            std::string folded;
            for (const char letter : text)
                folded += static_cast<char>(letter | 0x20);
            return Sample<std::string>(text + (folded.size() > 3 ? "Ä" : ""),
                                       folded + (folded.size() > 3 ? "ä" : ""));
        },
        byUnsigned);
    UErrorCode status = U_ZERO_ERROR;
    UCollator* const german = ucol_open("de", &status);
    expectOrder<std::string>(
        "text:de",
        [](Random& random) {
            const char* const parts[] = {"a", "A", "ä", "z", "-", "𝔸", "\xf0\x9f\x98\x80"};
            std::string text;
            for (int i = below(random, 4); i > 0; --i)
                text += parts[below(random, 7)];
            return Sample<std::string>(text, text);
        },
        [&](const std::string& left, const std::string& right) {
            return static_cast<int>(ucol_strcollUTF8(german, left.data(),
                                                     static_cast<int>(left.size()), right.data(),
                                                     static_cast<int>(right.size()), &status));
        });
    ucol_close(german);
    // Runs of digits as numbers, the others as bytes, leading zeros last of all.
    const auto runs = [](const std::string& text) {
        std::vector<std::pair<int, std::string>> parts;
        std::string zeros;
        for (std::size_t i = 0; i < text.size();) {
            const std::size_t end = std::min(text.find_first_not_of("0123456789", i), text.size());
            if (end > i) {
                parts.emplace_back('0',
                                   printed("%09d", std::atoi(text.substr(i, end - i).c_str())));
                zeros += static_cast<char>('a' + std::min(text.find_first_not_of('0', i), end) - i);
            } else {
                parts.emplace_back(text[i], "");
            }
            i = std::max(end, i + 1);
        }
        return std::pair(parts, zeros);
    };
    expectOrder<std::string>(
        "natural",
        [](Random& random) {
            const std::string text = letters(random, "00129a-.", 6);
            return Sample<std::string>(text, text);
        },
        [&](const std::string& left, const std::string& right) {
            return signOf(runs(left) <=> runs(right));
        });
}

TEST(OrderedKeys, OfTimesStandAsTimeGoesBy) {
    const auto drawTime = [](Random& random, std::int64_t spread, const char* format,
                             std::int64_t zone) {
        const std::time_t at = static_cast<std::time_t>(static_cast<std::int64_t>(random()) %
                                                        spread * (below(random, 2) * 2 - 1));
        const std::time_t local = at + zone;
        std::tm parts = {};
        gmtime_r(&local, &parts);
        char text[64];
        std::strftime(text, sizeof text, format, &parts);
        return Sample<std::int64_t>(text, at);
    };
    const auto byDay = [](const std::int64_t& left, const std::int64_t& right) {
        const auto day = [](std::int64_t at) {
            return std::floor(static_cast<double>(at) / 86400);
        };
        return (day(left) > day(right)) - (day(left) < day(right));
    };
    expectOrder<std::int64_t>(
        "date", [&](Random& random) { return drawTime(random, 4000000000, "%Y-%m-%d", 0); }, byDay);
    expectOrder<std::int64_t>("timestamp", [&](Random& random) {
        return drawTime(random, 100000, "%Y-%m-%d %H:%M:%S", 0);
    });
    expectOrder<std::int64_t>("timestamptz", [&](Random& random) {
        const int quarters = below(random, 9) - 4;
        const std::string zone = printed("%c%02d:%02d", quarters < 0 ? '-' : '+',
                                         std::abs(quarters) / 4, std::abs(quarters) % 4 * 15);
        return drawTime(random, 7200, ("%Y-%m-%dT%H:%M:%S" + zone).c_str(), quarters * 900);
    });
    expectOrder<std::string>(
        "time",
        [](Random& random) {
            const std::string text = printed("%02d:%02d:%02d.%d", below(random, 24),
                                             below(random, 2), below(random, 2), below(random, 9));
            return Sample<std::string>(text, text);
        },
        byUnsigned);
    expectOrder<int>("month", [](Random& random) {
        const int month = below(random, 12);
        const char* const words[] = {"JAN", "Feb", "march", "apr", "May", "June",
                                     "jul", "Aug", "sep",   "oct", "nov", "December"};
        return Sample<int>(words[month], month);
    });
}

struct Network {
    std::string bits;  // all, as digits
    std::size_t prefix;
};

TEST(OrderedKeys, OfIdentifiersStandAsTheyDo) {
    expectOrder<bool>("boolean", [](Random& random) {
        const char* const words[] = {"f", "True", "0", "YES", "off", "on"};
        const int word = below(random, 6);
        return Sample<bool>(words[word], word % 2 == 1);
    });
    expectOrder<std::string>(
        "uuid",
        [](Random& random) {
            std::string digits(32, '0');
            for (int i = 0; i < 3; ++i)
                digits[static_cast<std::size_t>(below(random, 32))] = "09af"[below(random, 4)];
            std::string text = digits;
            if (below(random, 2) == 0) {
                for (const std::size_t at : {20U, 16U, 12U, 8U})
                    text.insert(at, 1, '-');
            }
            return Sample<std::string>(text, digits);
        },
        byUnsigned);
    // Up to the shorter prefix, then the prefixes, then the rest, as PostgreSQL compares.
    expectOrder<Network>(
        "inet",
        [](Random& random) {
            Byte bytes[4];
            Network network;
            for (Byte& byte : bytes) {
                byte = static_cast<Byte>("\0\1\200\377"[below(random, 4)]);
                for (int bit = 7; bit >= 0; --bit)
                    network.bits += (byte >> bit & 1) != 0 ? '1' : '0';
            }
            network.prefix =
                static_cast<std::size_t>(below(random, 4) == 0 ? below(random, 33) : 32);
            char text[INET_ADDRSTRLEN];
            inet_ntop(AF_INET, bytes, text, sizeof text);
            return Sample<Network>(
                network.prefix < 32 ? printed("%s/%zu", text, network.prefix) : text, network);
        },
        [](const Network& left, const Network& right) {
            const std::size_t common = std::min(left.prefix, right.prefix);
            if (const int order = left.bits.compare(0, common, right.bits, 0, common); order != 0)
                return signOf(order <=> 0);
            if (left.prefix != right.prefix) return signOf(left.prefix <=> right.prefix);
            return signOf(left.bits.compare(right.bits) <=> 0);
        });
}

// Of values in this order, nulls, NaN and unreadable texts stand where the key says.
TEST(OrderedKeys, PlaceWhatIsNoOrdinaryValue) {
    constexpr auto kFirst = Placement::kFirst;
    constexpr auto kLast = Placement::kLast;
    constexpr auto kDefault = Placement::kDefault;
    struct Case {
        bool descending;
        Placement nulls;
        Placement nans;
        const char* order;
    };
    const Case cases[] = {
        {false, kDefault, kDefault, "-inf 1 2 nan null x"},
        {true, kDefault, kDefault, "null nan 2 1 -inf x"},
        {false, kFirst, kFirst, "null nan -inf 1 2 x"},
        {true, kFirst, kLast, "null 2 1 -inf nan x"},
        {true, kLast, kFirst, "nan 2 1 -inf null x"},
        {false, kLast, kLast, "-inf 1 2 nan null x"},
    };
    for (const char* const type : {"double", "float", "decimal"}) {
        for (const Case& c : cases) {
            OrderedKey key({{type, {}}, c.descending, c.nulls, c.nans});
            std::vector<KeyBytes> keys;
            std::istringstream words(c.order);
            for (std::string word; words >> word;) {
                KeyBytes& bytes = keys.emplace_back();
                if (word == "null") key.appendNull(bytes);
                if (word == "x") OrderedKey::appendUnreadable(word, bytes);
                if (word != "null" && word != "x") key.append(word, bytes);
                // What follows a key does not matter.
                bytes.push_back(keys.size() % 2 == 0 ? 0 : 255);
            }
            EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end())) << type << ": " << c.order;
        }
    }
}

TEST(OrderedKeys, RefuseWhatIsNoValue) {
    const char* const cases[][2] = {
        {"int", "1x"},
        {"int16", "40000"},
        {"byte", "-1"},
        {"double", ""},
        {"double", "1e999"},
        {"decimal", "."},
        {"decimal", "1e"},
        {"decimal", "1e9999999999"},
        {"decimal:1", "1.25"},
        {"decimal:1", "1e1"},
        {"size", "K"},
        {"size", "5i"},
        {"size", "1Q"},
        {"hex", "0x"},
        {"hex", "g"},
        {"boolean", "maybe"},
        {"date", "2023-02-29"},
        {"date", "2023-2-09"},
        {"time", "24:00:01"},
        {"time", "1:00"},
        {"time", "10:00:00.1234567890"},
        {"timestamp", "2024-01-01T10:00Z"},
        {"timestamptz", "2024-01-01T10:00+1"},
        {"month", "Janu"},
        {"uuid", "0123"},
        {"uuid", "0123456789abcdef0123456789abcdeg"},
        {"inet", "1.2.3"},
        {"inet", "1.2.3.4/33"},
        {"text:de", "\xff"},
        {"text:nocase", "\xff"},
        {"text:2", "abc"},
    };
    for (const auto& [type, text] : cases) {
        const std::string name = type;
        const std::size_t colon = std::min(name.find(':'), name.size());
        KeyForm form;
        form.type.name = name.substr(0, colon);
        if (colon < name.size()) form.type.arguments.push_back(name.substr(colon + 1));
        KeyBytes key = {7};
        EXPECT_THROW(OrderedKey(form).append(text, key), HostError) << type << " " << text;
        EXPECT_EQ(key, KeyBytes{7}) << type;
    }
    const TypeText unknown[] = {{"text", {"xx"}}, {"text", {"de", "de"}}, {"string", {"de"}},
                                {"int", {"5"}},   {"decimal", {"x"}},     {"auto", {}},
                                {"number", {}}};
    for (const TypeText& text : unknown)
        EXPECT_THROW(makeOrderedType(text), HostError) << text.text();
}

TEST(OrderedKeys, GuessTheNarrowestTypeOfAllValues) {
    const std::pair<std::vector<const char*>, const char*> cases[] = {
        {{"1", "0"}, "int"},
        {{"1", "2.5"}, "decimal"},
        {{"1", "0x1"}, "text"},
        {{"true", "f"}, "boolean"},
        {{"99999999999999999999"}, "decimal"},
        {{"2024-01-01"}, "date"},
        {{"2024-01-01", "2024-01-01T01:00"}, "timestamp"},
        {{"2024-01-01T01:00Z"}, "timestamptz"},
        {{"10:00"}, "time"},
        {{"10.0.0.1"}, "inet"},
        {{}, "text"},
        {{"", "1"}, "text"},
    };
    for (const auto& [values, type] : cases) {
        TypeGuess guess;
        for (const char* const value : values)
            guess.take(value);
        EXPECT_EQ(guess.chosen().name, type);
    }
}

}  // namespace
}  // namespace tvsort::host
