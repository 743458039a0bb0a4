// A small JSON reader for the tests: enough of the grammar to read qnd-stats's output back.
#pragma once

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace qnd_test {

struct json_value {
    enum kind_t { null, boolean, number, string, array, object } kind = null;
    bool flag = false;
    double num = 0;
    std::string str;
    std::vector<json_value> items;
    std::vector<std::pair<std::string, json_value>> members;  // in the order written

    const json_value& operator[](const std::string& key) const {
        for (const auto& m : members)
            if (m.first == key)
                return m.second;
        throw std::runtime_error("no member " + key);
    }
    bool has(const std::string& key) const {
        for (const auto& m : members)
            if (m.first == key)
                return true;
        return false;
    }
};

struct json_parser {
    const std::string& s;
    std::size_t i = 0;

    void skip() {
        while (i < s.size() && (s[i] == ' ' || s[i] == '\n' || s[i] == '\t' || s[i] == '\r'))
            ++i;
    }
    void expect(char c) {
        skip();
        if (i >= s.size() || s[i] != c)
            throw std::runtime_error(std::string("expected ") + c + " at " + std::to_string(i));
        ++i;
    }
    bool word(const char* w) {
        const std::string ws(w);
        if (s.compare(i, ws.size(), ws) != 0)
            return false;
        i += ws.size();
        return true;
    }
    std::string text() {
        expect('"');
        std::string out;
        while (i < s.size() && s[i] != '"') {
            if (s[i] == '\\') {
                ++i;
                if (s[i] == 'u') {
                    out += static_cast<char>(std::strtol(s.substr(i + 1, 4).c_str(), nullptr, 16));
                    i += 5;
                    continue;
                }
                out += s[i] == 'n' ? '\n' : s[i];
                ++i;
                continue;
            }
            out += s[i++];
        }
        expect('"');
        return out;
    }
    json_value value() {
        skip();
        json_value v;
        if (i >= s.size())
            throw std::runtime_error("unexpected end");
        if (s[i] == '{') {
            v.kind = json_value::object;
            ++i;
            skip();
            if (s[i] == '}') {
                ++i;
                return v;
            }
            while (true) {
                std::string key = text();
                expect(':');
                v.members.emplace_back(key, value());
                skip();
                if (s[i] == ',') {
                    ++i;
                    continue;
                }
                expect('}');
                return v;
            }
        }
        if (s[i] == '[') {
            v.kind = json_value::array;
            ++i;
            skip();
            if (s[i] == ']') {
                ++i;
                return v;
            }
            while (true) {
                v.items.push_back(value());
                skip();
                if (s[i] == ',') {
                    ++i;
                    continue;
                }
                expect(']');
                return v;
            }
        }
        if (s[i] == '"') {
            v.kind = json_value::string;
            v.str = text();
            return v;
        }
        if (word("null"))
            return v;
        if (word("true") || word("false")) {
            v.kind = json_value::boolean;
            v.flag = s[i - 1] == 'e' && s[i - 2] == 'u';
            return v;
        }
        // Numbers: the JSON grammar only (no leading '+', no "nan").
        const std::size_t start = i;
        if (s[i] == '-')
            ++i;
        while (i < s.size() && std::strchr("0123456789.eE+-", s[i]) != nullptr)
            ++i;
        if (i == start || (i == start + 1 && s[start] == '-'))
            throw std::runtime_error("bad value at " + std::to_string(start));
        v.kind = json_value::number;
        char* end = nullptr;
        const std::string t = s.substr(start, i - start);
        v.num = std::strtod(t.c_str(), &end);
        if (*end != '\0')
            throw std::runtime_error("bad number " + t);
        return v;
    }
};

inline json_value parse_json(const std::string& s) {
    json_parser p{s};
    json_value v = p.value();
    p.skip();
    if (p.i != s.size())
        throw std::runtime_error("text after the value");
    return v;
}

}  // namespace qnd_test
