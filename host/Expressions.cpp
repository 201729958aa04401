// Expressions that drive parameters: numbers, parameter paths, + - * / and parentheses. A
// parameter driven by another's path follows it at every time. Also the value of a parameter
// from its own source (curve or expression), with cycles between expressions broken.
#include <algorithm>
#include <cmath>
#include <cwctype>

#include "AnimHooks.h"

using namespace ORV;

namespace orvhost {

struct ExprNode {
    enum Kind { Number, Path, Negate, Add, Sub, Mul, Div } kind = Number;
    double number = 0.0;
    std::wstring path;
    std::unique_ptr<ExprNode> a, b;
    // The parameter a path named when it was last resolved, and the scene revision then.
    mutable std::uint64_t resolved = 0;
    mutable std::uint64_t resolvedRevision = 0;
};

ExpressionItem::ExpressionItem() : Item(ovExpressionID, L"Expression") {}
ExpressionItem::~ExpressionItem() = default;

namespace {

class Parser {
public:
    explicit Parser(const std::wstring& text) : m_text(text) {}

    std::unique_ptr<ExprNode> Parse(std::wstring& error) {
        auto node = ParseSum();
        if (node) {
            SkipBlanks();
            if (m_pos < m_text.size()) Fail(L"unexpected \"" + std::wstring(1, m_text[m_pos]) + L"\"");
        }
        if (!m_error.empty()) {
            error = L"The expression \"" + m_text + L"\" is not valid: " + m_error + L".";
            return nullptr;
        }
        return node;
    }

private:
    void SkipBlanks() {
        while (m_pos < m_text.size() && std::iswspace(m_text[m_pos])) ++m_pos;
    }
    bool Peek(wchar_t c) {
        SkipBlanks();
        return m_pos < m_text.size() && m_text[m_pos] == c;
    }
    void Fail(const std::wstring& what) {
        if (m_error.empty()) m_error = what;
    }
    static std::unique_ptr<ExprNode> Binary(ExprNode::Kind k, std::unique_ptr<ExprNode> a,
                                            std::unique_ptr<ExprNode> b) {
        auto n = std::make_unique<ExprNode>();
        n->kind = k;
        n->a = std::move(a);
        n->b = std::move(b);
        return n;
    }

    std::unique_ptr<ExprNode> ParseSum() {
        auto left = ParseProduct();
        while (left) {
            if (Peek(L'+')) {
                ++m_pos;
                auto right = ParseProduct();
                if (!right) return nullptr;
                left = Binary(ExprNode::Add, std::move(left), std::move(right));
            } else if (Peek(L'-')) {
                ++m_pos;
                auto right = ParseProduct();
                if (!right) return nullptr;
                left = Binary(ExprNode::Sub, std::move(left), std::move(right));
            } else {
                break;
            }
        }
        return left;
    }

    std::unique_ptr<ExprNode> ParseProduct() {
        auto left = ParseUnary();
        while (left) {
            if (Peek(L'*')) {
                ++m_pos;
                auto right = ParseUnary();
                if (!right) return nullptr;
                left = Binary(ExprNode::Mul, std::move(left), std::move(right));
            } else if (Peek(L'/')) {
                ++m_pos;
                auto right = ParseUnary();
                if (!right) return nullptr;
                left = Binary(ExprNode::Div, std::move(left), std::move(right));
            } else {
                break;
            }
        }
        return left;
    }

    std::unique_ptr<ExprNode> ParseUnary() {
        if (Peek(L'-')) {
            ++m_pos;
            auto inner = ParseUnary();
            if (!inner) return nullptr;
            auto n = std::make_unique<ExprNode>();
            n->kind = ExprNode::Negate;
            n->a = std::move(inner);
            return n;
        }
        if (Peek(L'+')) {
            ++m_pos;
            return ParseUnary();
        }
        return ParsePrimary();
    }

    static bool IsNameChar(wchar_t c) { return std::iswalnum(c) || c == L'_'; }

    std::unique_ptr<ExprNode> ParsePrimary() {
        SkipBlanks();
        if (m_pos >= m_text.size()) {
            Fail(m_text.empty() ? L"it is empty" : L"it ends too early");
            return nullptr;
        }
        const wchar_t c = m_text[m_pos];
        if (c == L'(') {
            ++m_pos;
            auto inner = ParseSum();
            if (!inner) return nullptr;
            if (!Peek(L')')) {
                Fail(L"a \")\" is missing");
                return nullptr;
            }
            ++m_pos;
            return inner;
        }
        if (std::iswdigit(c) || c == L'.') return ParseNumber();
        if (std::iswalpha(c) || c == L'_') return ParsePath();
        Fail(L"unexpected \"" + std::wstring(1, c) + L"\"");
        return nullptr;
    }

    std::unique_ptr<ExprNode> ParseNumber() {
        const std::size_t start = m_pos;
        while (m_pos < m_text.size() && std::iswdigit(m_text[m_pos])) ++m_pos;
        if (m_pos < m_text.size() && m_text[m_pos] == L'.') {
            ++m_pos;
            while (m_pos < m_text.size() && std::iswdigit(m_text[m_pos])) ++m_pos;
        }
        if (m_pos < m_text.size() && (m_text[m_pos] == L'e' || m_text[m_pos] == L'E')) {
            std::size_t p = m_pos + 1;
            if (p < m_text.size() && (m_text[p] == L'+' || m_text[p] == L'-')) ++p;
            if (p < m_text.size() && std::iswdigit(m_text[p])) {
                m_pos = p;
                while (m_pos < m_text.size() && std::iswdigit(m_text[m_pos])) ++m_pos;
            }
        }
        const std::wstring digits = m_text.substr(start, m_pos - start);
        if (digits == L".") {
            Fail(L"a number is malformed");
            return nullptr;
        }
        std::string narrow(digits.begin(), digits.end());
        auto n = std::make_unique<ExprNode>();
        n->kind = ExprNode::Number;
        n->number = std::strtod(narrow.c_str(), nullptr);
        return n;
    }

    std::unique_ptr<ExprNode> ParsePath() {
        const std::size_t start = m_pos;
        while (m_pos < m_text.size()) {
            if (IsNameChar(m_text[m_pos])) {
                ++m_pos;
            } else if (m_text[m_pos] == L'.' && m_pos + 1 < m_text.size() && IsNameChar(m_text[m_pos + 1])) {
                ++m_pos;
            } else {
                break;
            }
        }
        auto n = std::make_unique<ExprNode>();
        n->kind = ExprNode::Path;
        n->path = m_text.substr(start, m_pos - start);
        return n;
    }

    const std::wstring& m_text;
    std::size_t m_pos = 0;
    std::wstring m_error;
};

ParamItem* ResolvePath(const ExprNode& n) {
    const std::uint64_t rev = TheHost().scene->revision;
    if (n.resolvedRevision == rev) return dynamic_cast<ParamItem*>(TheStore().Resolve(n.resolved));
    auto* p = dynamic_cast<ParamItem*>(FindByPath(n.path));
    if (p && !p->IsA(ovParameterID)) p = nullptr;
    n.resolved = p ? p->id : 0;
    n.resolvedRevision = rev;
    return p;
}

// Parameters whose source is being evaluated now; reading one of them again gives its own
// value, which breaks a cycle of expressions.
std::vector<const ParamItem*>& InEvaluation() {
    static std::vector<const ParamItem*> stack;
    return stack;
}

}  // namespace

std::unique_ptr<ExprNode> ParseExpression(const std::wstring& text, std::wstring& error) {
    Parser parser(text);
    return parser.Parse(error);
}

bool EvalExpression(const ExprNode& n, double time, double& out) {
    double a = 0.0, b = 0.0;
    switch (n.kind) {
        case ExprNode::Number:
            out = n.number;
            return true;
        case ExprNode::Path: {
            ParamItem* p = ResolvePath(n);
            if (!p) return false;
            out = static_cast<double>(ParamValue(p, time));
            return true;
        }
        case ExprNode::Negate:
            if (!EvalExpression(*n.a, time, a)) return false;
            out = -a;
            return true;
        default:
            break;
    }
    if (!EvalExpression(*n.a, time, a) || !EvalExpression(*n.b, time, b)) return false;
    switch (n.kind) {
        case ExprNode::Add:
            out = a + b;
            return true;
        case ExprNode::Sub:
            out = a - b;
            return true;
        case ExprNode::Mul:
            out = a * b;
            return true;
        case ExprNode::Div:
            if (b == 0.0) return false;
            out = a / b;
            return true;
        default:
            return false;
    }
}

void ExpressionPaths(const ExprNode& n, std::vector<std::wstring>& out) {
    if (n.kind == ExprNode::Path) out.push_back(n.path);
    if (n.a) ExpressionPaths(*n.a, out);
    if (n.b) ExpressionPaths(*n.b, out);
}

bool SetParamExpression(ParamItem* p, const std::wstring& text, std::wstring& error) {
    if (!p) return false;
    std::wstring trimmed = text;
    while (!trimmed.empty() && std::iswspace(trimmed.back())) trimmed.pop_back();
    while (!trimmed.empty() && std::iswspace(trimmed.front())) trimmed.erase(trimmed.begin());
    if (trimmed.empty()) {
        if (p->source && p->source->classId == ovExpressionID) RemoveParamSource(p);
        return true;
    }
    if (p->type == ovRef || p->type == ovString || p->type == ovLPStr) {
        error = L"The parameter " + FullName(p) + L" cannot take an expression.";
        return false;
    }
    auto tree = ParseExpression(trimmed, error);
    if (!tree) return false;
    RemoveParamSource(p);
    auto* e = p->Own(std::make_unique<ExpressionItem>());
    e->text = trimmed;
    e->tree = std::move(tree);
    p->source = e;
    TheHost().Touch();
    return true;
}

CValue SourceValue(ParamItem* p, double time) {
    if (!p) return CValue();
    if (!p->source) return p->value;
    auto& stack = InEvaluation();
    if (std::find(stack.begin(), stack.end(), p) != stack.end()) return p->value;
    stack.push_back(p);
    double v = 0.0;
    bool ok = false;
    if (p->source->classId == ovFCurveID) {
        v = static_cast<FCurveItem*>(p->source)->Eval(time, &ok);
    } else if (p->source->classId == ovExpressionID) {
        auto* e = static_cast<ExpressionItem*>(p->source);
        ok = e->tree && EvalExpression(*e->tree, time, v);
    }
    stack.pop_back();
    return ok ? NumberAsParamValue(p, v) : p->value;
}

}  // namespace orvhost

using namespace orvhost;

CString Expression::GetDefinition() const {
    auto* e = dynamic_cast<ExpressionItem*>(TheStore().Resolve(m_ref));
    return e ? CString(e->text) : CString();
}

Parameter Expression::GetTarget() const {
    auto* e = dynamic_cast<ExpressionItem*>(TheStore().Resolve(m_ref));
    return e && e->owner ? Parameter(e->owner->Ref()) : Parameter();
}
