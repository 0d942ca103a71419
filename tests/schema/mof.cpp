// SPDX-License-Identifier: Apache-2.0
#include "schema/mof.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace mof {
namespace {

struct Token {
    enum class Kind { word, string, mark, end } kind = Kind::end;
    std::string text;
    int line = 1;
};

[[noreturn]] void fail(int line, const std::string &what)
{
    throw std::runtime_error("line " + std::to_string(line) + ": " + what);
}

bool isWordChar(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

class Lexer {
public:
    explicit Lexer(std::string_view text) : text_(text) {}

    Token next()
    {
        skipBlanksAndComments();
        if (at_ >= text_.size()) {
            return {Token::Kind::end, "end of file", line_};
        }
        const char c = text_[at_];
        if (c == '"') {
            return string();
        }
        if (isWordChar(c)) {
            return word();
        }
        ++at_;
        return {Token::Kind::mark, std::string(1, c), line_};
    }

private:
    bool ahead(std::string_view what) const { return text_.substr(at_, what.size()) == what; }

    void skipBlanksAndComments()
    {
        while (at_ < text_.size()) {
            if (ahead("//")) {
                skipTo("\n");
            } else if (ahead("/*")) {
                skipTo("*/");
            } else if (std::isspace(static_cast<unsigned char>(text_[at_])) != 0) {
                advance(1);
            } else {
                return;
            }
        }
    }

    void skipTo(std::string_view mark)
    {
        const size_t found = text_.find(mark, at_);
        advance((found == std::string_view::npos ? text_.size() : found + mark.size()) - at_);
    }

    void advance(size_t count)
    {
        for (; count > 0; --count, ++at_) {
            line_ += text_[at_] == '\n' ? 1 : 0;
        }
    }

    Token string()
    {
        Token token{Token::Kind::string, "", line_};
        for (++at_; at_ < text_.size() && text_[at_] != '"'; ++at_) {
            if (text_[at_] == '\n') {
                fail(line_, "a string ends at its line's end");
            }
            if (text_[at_] == '\\' && at_ + 1 < text_.size()) {
                ++at_;
            }
            token.text += text_[at_];
        }
        if (at_ >= text_.size()) {
            fail(token.line, "a string without an end");
        }
        ++at_;
        return token;
    }

    Token word()
    {
        const size_t start = at_;
        while (at_ < text_.size() && isWordChar(text_[at_])) {
            ++at_;
        }
        return {Token::Kind::word, std::string(text_.substr(start, at_ - start)), line_};
    }

    std::string_view text_;
    size_t at_ = 0;
    int line_ = 1;
};

std::string lowered(std::string text)
{
    for (char &c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

class Parser {
public:
    explicit Parser(std::string_view text) : lexer_(text), token_(lexer_.next()) {}

    std::vector<Class> classes()
    {
        std::vector<Class> found;
        while (token_.kind != Token::Kind::end) {
            found.push_back(classDeclaration());
        }
        return found;
    }

    std::vector<Instance> instances()
    {
        std::vector<Instance> found;
        while (token_.kind != Token::Kind::end) {
            found.push_back(instance());
        }
        return found;
    }

private:
    Token take()
    {
        Token taken = token_;
        token_ = lexer_.next();
        return taken;
    }

    bool is(const char *mark) const { return token_.kind == Token::Kind::mark && token_.text == mark; }

    bool accept(const char *mark)
    {
        if (!is(mark)) {
            return false;
        }
        take();
        return true;
    }

    void expect(const char *mark)
    {
        if (!accept(mark)) {
            fail(token_.line, std::string("\"") + mark + "\" expected instead of \"" + token_.text + "\"");
        }
    }

    void keyword(const std::string &expected)
    {
        if (lowered(word(expected.c_str())) != expected) {
            fail(token_.line, expected + " expected");
        }
    }

    std::string word(const char *what)
    {
        if (token_.kind != Token::Kind::word) {
            fail(token_.line, std::string(what) + " expected instead of \"" + token_.text + "\"");
        }
        return take().text;
    }

    // A number or a string; adjacent strings are one.
    std::string value()
    {
        const bool number =
            token_.kind == Token::Kind::word &&
            std::all_of(token_.text.begin(), token_.text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
        if (number) {
            return take().text;
        }
        if (token_.kind != Token::Kind::string) {
            fail(token_.line, "string or number expected instead of \"" + token_.text + "\"");
        }
        std::string value;
        while (token_.kind == Token::Kind::string) {
            value += take().text;
        }
        return value;
    }

    // The part after an opening brace.
    Values array()
    {
        Values found{value()};
        while (accept(",")) {
            found.push_back(value());
        }
        expect("}");
        return found;
    }

    Qualifiers qualifiers()
    {
        Qualifiers found;
        if (!accept("[")) {
            return found;
        }
        do {
            const int line = token_.line;
            const std::string name = lowered(word("qualifier"));
            Values values;
            if (accept("(")) {
                values = {value()};
                expect(")");
            } else if (accept("{")) {
                values = array();
            }
            if (!found.emplace(name, values).second) {
                fail(line, "qualifier " + name + " twice");
            }
        } while (accept(","));
        expect("]");
        return found;
    }

    Class classDeclaration()
    {
        Class declared;
        declared.qualifiers = qualifiers();
        keyword("class");
        declared.name = word("class name");
        if (accept(":")) {
            declared.superclass = word("superclass");
        }
        expect("{");
        while (!is("}")) {
            feature(declared);
        }
        expect("}");
        expect(";");
        return declared;
    }

    void feature(Class &declared)
    {
        Qualifiers found = qualifiers();
        std::string type = word("type");
        std::string name = word("name");
        if (accept("(")) {
            Method method{std::move(found), std::move(type), std::move(name), {}};
            while (!is(")")) {
                if (!method.parameters.empty()) {
                    expect(",");
                }
                method.parameters.push_back(parameter());
            }
            expect(")");
            declared.methods.push_back(std::move(method));
        } else {
            declared.properties.push_back({std::move(found), std::move(type), std::move(name)});
        }
        expect(";");
    }

    Parameter parameter()
    {
        Parameter found;
        found.qualifiers = qualifiers();
        found.type = word("type");
        found.name = word("name");
        return found;
    }

    Instance instance()
    {
        keyword("instance");
        keyword("of");
        Instance found;
        found.className = word("class name");
        expect("{");
        while (!is("}")) {
            assignment(found);
        }
        expect("}");
        expect(";");
        return found;
    }

    void assignment(Instance &instance)
    {
        const int line = token_.line;
        const std::string name = word("property");
        expect("=");
        Values values;
        if (token_.kind == Token::Kind::word && lowered(token_.text) == "null") {
            take();
        } else if (accept("{")) {
            values = array();
        } else {
            values = {value()};
        }
        expect(";");
        if (!instance.properties.emplace(name, values).second) {
            fail(line, "property " + name + " twice");
        }
    }

    Lexer lexer_;
    Token token_;
};

} // namespace

std::vector<Class> parse(std::string_view text)
{
    return Parser(text).classes();
}

std::vector<Instance> parseInstances(std::string_view text)
{
    return Parser(text).instances();
}

} // namespace mof
