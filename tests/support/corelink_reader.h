// corelink_reader.h - a plain recursive reader of corelink, to compare the parser with. It takes
// tokens, not text, and gives what shape::members() shows of the tree, or the tag of the container
// in which the first wrong token stands.
#pragma once

#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace test {

class CorelinkReader {
public:
    explicit CorelinkReader(std::vector<std::string> tokens) : tokens_(std::move(tokens))
    {
        root_.tag = "head";
        if (members(root_) && next_ != tokens_.size()) fail(root_);
    }
    [[nodiscard]] bool refused() const { return refused_in_.has_value(); }
    [[nodiscard]] const std::string &refused_in() const { return *refused_in_; }
    [[nodiscard]] std::string shape() const { return members_of(root_); }

private:
    struct Node {
        std::string tag;
        char kind = '{'; // of a container its bracket, else 'v' or, for a name alone, '-'
        std::string value = {};
        std::vector<std::unique_ptr<Node>> members = {};
    };

    bool fail(const Node &container)
    {
        refused_in_ = container.tag.empty() ? "NULL" : container.tag; // it is named when it closes
        return false;
    }
    bool take(const char *token)
    {
        if (next_ == tokens_.size() || tokens_[next_] != token) return false;
        ++next_;
        return true;
    }
    // The token when it starts with one of these characters, else an empty text.
    std::string take_if(bool (*starts)(char))
    {
        if (next_ == tokens_.size() || !starts(tokens_[next_].front())) return {};
        return tokens_[next_++];
    }
    std::string take_name()
    {
        if (next_ == tokens_.size()) return {};
        const std::string &token = tokens_[next_];
        if (token.size() < 2 || token == "true" || token == "false") return {};
        return take_if([](char c) { return isalpha(static_cast<unsigned char>(c)) != 0; });
    }

    bool members(Node &in)
    {
        do
            if (!member(in)) return false;
        while (take(","));
        return true;
    }
    bool elements(Node &in)
    {
        do
            if (!value(in, {})) return false;
        while (take(","));
        return true;
    }
    bool member(Node &in)
    {
        const std::string name = take_name();
        if (name.empty()) return fail(in);
        if (take("=")) return value(in, name);
        if (!take(".")) {
            in.members.push_back(std::make_unique<Node>(Node{name, '-'}));
            return true;
        }
        const auto known = std::find_if(in.members.rbegin(), in.members.rend(),
                                        [&](const auto &node) { return node->tag == name; });
        if (known == in.members.rend()) {
            in.members.push_back(std::make_unique<Node>(Node{name}));
            return member(*in.members.back());
        }
        const bool has_room = (*known)->kind == '{' || (*known)->kind == '[';
        return has_room ? member(**known) : fail(in);
    }
    bool value(Node &in, const std::string &name)
    {
        auto node = std::make_unique<Node>();
        if (take("{")) {
            if (!members(*node)) return false;
            if (!take("}")) return fail(*node);
        } else if (take("[")) {
            node->kind = '[';
            if (!elements(*node)) return false;
            if (!take("]")) return fail(*node);
        } else {
            node->kind = 'v';
            node->value = take_if(
                [](char c) { return c == '"' || isdigit(static_cast<unsigned char>(c)) != 0; });
            if (node->value.empty() && take("true")) node->value = "true";
            if (node->value.empty() && take("false")) node->value = "false";
            if (node->value.empty()) return fail(in);
        }
        node->tag = name;
        in.members.push_back(std::move(node));
        return true;
    }

    static std::string members_of(const Node &container)
    {
        std::string text;
        for (const auto &node : container.members) {
            if (!text.empty()) text += " ";
            text += node->tag.empty() ? "-" : node->tag;
            if (node->kind == 'v') text += ":" + node->value;
            if (node->kind == '{') text += ":{" + members_of(*node) + "}";
            if (node->kind == '[') text += ":[" + members_of(*node) + "]";
        }
        return text;
    }

    std::vector<std::string> tokens_;
    size_t next_ = 0;
    Node root_;
    std::optional<std::string> refused_in_;
};

} // namespace test
