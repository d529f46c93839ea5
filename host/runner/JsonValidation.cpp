#include "JsonValidation.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using Json = nlohmann::json;

/// Longest part of the parser's own message kept in a problem text (its
/// "last read" part may quote a whole long token).
constexpr int kMaxParserDetail = 160;

QString quoteKey(const std::string& key)
{
    QString text = QString::fromUtf8(key.data(), static_cast<int>(std::min<std::size_t>(key.size(), 4 * kMaxQuotedKey)));
    if (text.size() > kMaxQuotedKey || key.size() > 4 * kMaxQuotedKey)
        text = text.left(kMaxQuotedKey) + QStringLiteral("...");
    return QLatin1Char('"') + text + QLatin1Char('"');
}

/// Keys of an object compared one by one as they come; an object with more
/// is checked once, sorted, when it closes (a hash set per object costs
/// more time and memory for the large ones).
constexpr std::size_t kScannedKeys = 16;

/// Checks structure as the parser reports it: the keys of every open object
/// (kept only while it is open) and the nesting depth. Returning false stops
/// the parser at once.
class StepJsonChecker final : public nlohmann::json_sax<Json>
{
public:
    QString problem; ///< set when a check failed or the text is malformed

    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }

    bool start_object(std::size_t) override
    {
        if (!enter())
            return false;
        m_objects.emplace_back();
        m_isObject.push_back(true);
        return true;
    }

    bool key(string_t& key) override
    {
        std::vector<std::string>& keys = m_objects.back();
        if (keys.size() < kScannedKeys && std::find(keys.begin(), keys.end(), key) != keys.end())
            return duplicate(key);
        keys.push_back(std::move(key));
        return true;
    }

    bool end_object() override
    {
        std::vector<std::string>& keys = m_objects.back();
        if (keys.size() > kScannedKeys) {
            std::sort(keys.begin(), keys.end());
            const auto twice = std::adjacent_find(keys.begin(), keys.end());
            if (twice != keys.end())
                return duplicate(*twice);
        }
        m_objects.pop_back();
        m_isObject.pop_back();
        return true;
    }

    bool start_array(std::size_t) override
    {
        if (!enter())
            return false;
        m_isObject.push_back(false);
        return true;
    }

    bool end_array() override
    {
        m_isObject.pop_back();
        return true;
    }

    bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& error) override
    {
        // what(): "[json.exception.parse_error.101] parse error at line 1,
        // column 5: <detail>"; the detail is what a reader needs.
        std::string detail = error.what();
        const std::size_t colon = detail.find(": ");
        if (colon != std::string::npos)
            detail.erase(0, colon + 2);
        QString text = QString::fromUtf8(detail.data(), static_cast<int>(std::min<std::size_t>(detail.size(), 4 * kMaxParserDetail)));
        if (text.size() > kMaxParserDetail)
            text = text.left(kMaxParserDetail) + QStringLiteral("...");
        problem = QStringLiteral("malformed JSON: %1 at column %2").arg(text).arg(position);
        return false;
    }

private:
    bool duplicate(const std::string& key)
    {
        problem = QStringLiteral("duplicate key %1 in an object (at depth %2); every key may appear once")
                      .arg(quoteKey(key))
                      .arg(m_isObject.size());
        return false;
    }

    bool enter()
    {
        if (static_cast<int>(m_isObject.size()) < kMaxJsonDepth)
            return true;
        problem = QStringLiteral("JSON nested deeper than %1 levels (objects and arrays)").arg(kMaxJsonDepth);
        return false;
    }

    std::vector<std::vector<std::string>> m_objects; // keys of the open objects, outermost first
    std::vector<bool> m_isObject;                     // open containers, outermost first
};

} // namespace

bool validateStepJson(const QByteArray& text, QString& problem)
{
    StepJsonChecker checker;
    const char* begin = text.constData();
    const bool ok = Json::sax_parse(begin, begin + text.size(), &checker, nlohmann::json::input_format_t::json,
                                    /*strict=*/true, /*ignore_comments=*/false);
    if (ok)
        return true;
    problem = checker.problem.isEmpty() ? QStringLiteral("malformed JSON") : checker.problem;
    return false;
}
