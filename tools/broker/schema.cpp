// SPDX-License-Identifier: Apache-2.0
// Reads class declarations from a schema (MOF, DSP0004): names, types and keys of properties, including those of base
// classes.

#include "broker/broker_impl.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace broker {

namespace {

struct Token {
    std::string text; // a string literal includes its quotes
    int line = 0;
};

class Tokens {
public:
    explicit Tokens(const std::string &mof)
    {
        for (size_t at = 0; at < mof.size();) {
            at = next(mof, at);
        }
        tokens_.push_back({"", line_}); // the end
    }
    const Token &peek() const { return tokens_[at_]; }
    bool end() const { return at_ + 1 == tokens_.size(); }
    Token take() { return end() ? tokens_[at_] : tokens_[at_++]; }
    bool accept(std::string_view text)
    {
        const bool same = !end() && sameName(peek().text, text);
        at_ += same ? 1 : 0;
        return same;
    }

private:
    static bool inName(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '.'; }

    size_t skipTo(const std::string &mof, size_t at, const char *what) const
    {
        const size_t found = mof.find(what, at);
        return found == std::string::npos ? mof.size() : found + std::char_traits<char>::length(what);
    }

    // Reads one token, comment, directive or blank. Returns the position after it.
    size_t next(const std::string &mof, size_t at)
    {
        size_t after = at + 1;
        const char c = mof[at];
        if (mof.compare(at, 2, "//") == 0 || c == '#') {
            after = skipTo(mof, at, "\n");
        } else if (mof.compare(at, 2, "/*") == 0) {
            after = skipTo(mof, at + 2, "*/");
        } else if (c == '"') {
            while (after < mof.size() && mof[after] != '"') {
                after += mof[after] == '\\' ? 2 : 1;
            }
            after = std::min(after + 1, mof.size());
            tokens_.push_back({mof.substr(at, after - at), line_});
        } else if (inName(c)) {
            while (after < mof.size() && inName(mof[after])) {
                ++after;
            }
            tokens_.push_back({mof.substr(at, after - at), line_});
        } else if (std::isspace(static_cast<unsigned char>(c)) == 0) {
            tokens_.push_back({std::string(1, c), line_});
        }
        line_ += static_cast<int>(std::count(mof.begin() + static_cast<std::ptrdiff_t>(at),
                                             mof.begin() + static_cast<std::ptrdiff_t>(after), '\n'));
        return after;
    }

    std::vector<Token> tokens_;
    size_t at_ = 0;
    int line_ = 1;
};

struct NamedType {
    const char *name;
    CMPIType type;
};

constexpr std::array<NamedType, 14> kTypes{{
    {"string", CMPI_string},
    {"boolean", CMPI_boolean},
    {"uint8", CMPI_uint8},
    {"uint16", CMPI_uint16},
    {"uint32", CMPI_uint32},
    {"uint64", CMPI_uint64},
    {"sint8", CMPI_sint8},
    {"sint16", CMPI_sint16},
    {"sint32", CMPI_sint32},
    {"sint64", CMPI_sint64},
    {"real32", CMPI_real32},
    {"real64", CMPI_real64},
    {"char16", CMPI_char16},
    {"datetime", CMPI_dateTime},
}};

CMPIType typeNamed(const std::string &name)
{
    for (const NamedType &known : kTypes) {
        if (sameName(known.name, name)) {
            return known.type;
        }
    }
    return CMPI_null;
}

// Skips to the closing bracket; the opening one has been taken. Returns false if there is none.
bool skipBrackets(Tokens &tokens, std::string_view opening, std::string_view closing)
{
    for (int depth = 1; depth > 0;) {
        if (tokens.end()) {
            return false;
        }
        const std::string text = tokens.take().text;
        depth += text == opening ? 1 : text == closing ? -1 : 0;
    }
    return true;
}

// Skips to the end of a statement.
void skipStatement(Tokens &tokens)
{
    while (!tokens.end() && !tokens.accept(";")) {
        if (tokens.accept("{")) {
            skipBrackets(tokens, "{", "}");
        } else {
            tokens.take();
        }
    }
}

// Skips the qualifiers before a class or feature. Sets key if "Key" is one of them. Returns false if they do not end.
bool skipQualifiers(Tokens &tokens, bool &key)
{
    key = false;
    if (!tokens.accept("[")) {
        return true;
    }
    for (int depth = 1; depth > 0;) {
        if (tokens.end()) {
            return false;
        }
        const std::string text = tokens.take().text;
        key = key || (depth == 1 && sameName(text, "Key"));
        depth += text == "[" || text == "(" || text == "{" ? 1 : text == "]" || text == ")" || text == "}" ? -1 : 0;
    }
    return true;
}

std::string syntaxError(const Token &token, const std::string &what)
{
    return "line " + std::to_string(token.line) + ": " + what + " at \"" + token.text + "\"";
}

// Reads one property, which is added to properties, or one method, which is skipped.
std::string parseFeature(Tokens &tokens, std::vector<Property> &properties)
{
    bool key = false;
    if (!skipQualifiers(tokens, key)) {
        return syntaxError(tokens.peek(), "unterminated qualifiers");
    }
    const Token typeName = tokens.take();
    CMPIType type = tokens.accept("ref") ? CMPIType{CMPI_ref} : typeNamed(typeName.text);
    const Token name = tokens.take();
    if (type == CMPI_null) {
        return syntaxError(typeName, "unknown type");
    }
    if (tokens.accept("(")) {
        skipStatement(tokens);
        return "";
    }
    if (tokens.accept("[")) {
        type = static_cast<CMPIType>(type | CMPI_ARRAY);
    }
    skipStatement(tokens);
    std::erase_if(properties, [&](const Property &inherited) { return sameName(inherited.name, name.text); });
    properties.push_back({name.text, type, key});
    return "";
}

std::string parseClass(Tokens &tokens, Core &core)
{
    ClassData made;
    made.name = tokens.take().text;
    if (tokens.accept(":")) {
        const std::lock_guard held(core.mutex);
        // An unknown base class belongs to another schema.
        if (const auto base = core.findClass(tokens.take().text)) {
            made.properties = base->properties;
        }
    }
    if (!tokens.accept("{")) {
        return syntaxError(tokens.peek(), "expected the body of class " + made.name);
    }
    while (!tokens.accept("}")) {
        if (tokens.end()) {
            return syntaxError(tokens.peek(), "unterminated class " + made.name);
        }
        std::string error = parseFeature(tokens, made.properties);
        if (!error.empty()) {
            return error;
        }
    }
    tokens.accept(";");
    core.addClass(std::make_shared<const ClassData>(std::move(made)));
    return "";
}

} // namespace

std::string Broker::addSchema(const std::string &mof)
{
    Tokens tokens(mof);
    std::string error;
    while (error.empty() && !tokens.end()) {
        bool key = false;
        if (!skipQualifiers(tokens, key)) {
            error = syntaxError(tokens.peek(), "unterminated qualifiers");
        } else if (tokens.accept("class")) {
            error = parseClass(tokens, impl_->core);
        } else if (tokens.accept("qualifier")) {
            skipStatement(tokens);
        } else {
            error = syntaxError(tokens.peek(), "expected the declaration of a class");
        }
    }
    return error;
}

} // namespace broker
