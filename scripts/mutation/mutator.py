"""Small mutations of a C++ source: find_mutants() names them, Mutant.apply() makes one.

Works on tokens, not on a parse tree, and leans on the formatting of this tree (.clang-format): a comparison has blanks on
both sides, the angle brackets of a template have none. Left alone is whatever is no code that runs: comments, texts,
preprocessor lines, templates' arguments, constexpr, static_assert, case labels, declarations and tables outside functions.
"""
import collections
import re

TOKEN = re.compile(r"""
    (?P<raw>(?:u8|[uUL])?R"(?P<mark>[^()\\\s]{0,16})\((?s:.*?)\)(?P=mark)")
  | (?P<text>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*"(?:[A-Za-z_]\w*)?)
  | (?P<comment>//(?:\\\n|[^\n])*|/\*(?s:.*?)\*/)
  | (?P<number>\.?\d(?:'?[\w.]|(?<=[eEpP])[+-])*)
  | (?P<char>(?:u8|[uUL])?'(?:\\.|[^'\\\n])+')
  | (?P<directive>^[ \t]*\#(?:\\\n|/\*(?s:.*?)\*/|(?!//|/\*)[^\n])*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<sign>->\*|<=>|<<=|>>=|\.\.\.|::|->|\+\+|--|<<|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|[^\s\w])
""", re.VERBOSE | re.MULTILINE)

Token = collections.namedtuple("Token", "kind text begin end")

# Read as "becomes"; only with a blank on both sides, which tells them from templates, references and signs of one side.
SPACED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&",
          "+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|="}
KINDS = {"+": "arithmetic", "-": "arithmetic", "*": "arithmetic", "/": "arithmetic", "%": "arithmetic",
         "+=": "arithmetic", "-=": "arithmetic", "|=": "arithmetic", "&=": "arithmetic"}
UNSPACED = {"++": "--", "--": "++"}
WORDS = {"true": "false", "false": "true"}
LOCKS = re.compile(r"\b(?:lock_guard|scoped_lock|unique_lock|shared_lock|\w*Guard|LOCK)\b")
LEFT_ALONE = {"constexpr", "consteval", "constinit", "static_assert", "using", "typedef", "template", "case", "goto",
              "friend", "enum", "extern", "asm", "namespace", "struct", "class", "union", "operator"}
STATEMENTS = {"return", "throw", "delete", "new", "co_return", "if", "for", "while", "do", "switch", "else", "default",
              "try", "catch", "public", "private", "protected"}


class Mutant:
    """One change of one source. Mutants of the same line text and change in a function are told apart by `number`."""

    def __init__(self, file, source, kind, function, begin, end, becomes):
        self.file, self.kind, self.function = file, kind, function
        self.begin, self.end, self.becomes = begin, end, becomes
        self.line = source.count("\n", 0, begin) + 1
        self.last_line = source.count("\n", 0, end) + 1
        first = source.rfind("\n", 0, begin) + 1
        last = source.find("\n", end)
        last = len(source) if last < 0 else last
        self.change = squeeze(f"{source[first:begin]}{{{{{source[begin:end]} => {becomes}}}}}{source[end:last]}")
        self.number = 1

    @property
    def key(self):
        """What names it also after lines have moved."""
        return f"{self.file} | {self.function} | {self.change}" + (f" | {self.number}" if self.number > 1 else "")

    def apply(self, source):
        return source[:self.begin] + self.becomes + source[self.end:]


def squeeze(text):
    return " ".join(text.split())


def tokenize(source):
    """The tokens that are code, and those that stand for one: texts and characters."""
    found = (Token(m.lastgroup if m.lastgroup != "mark" else "raw", m[0], m.start(), m.end()) for m in TOKEN.finditer(source))
    return [token for token in found if token.kind not in ("comment", "directive")]


def match_brackets(tokens):
    """Index of each bracket -> index of its opposite. Brackets that have none are left out."""
    pairs, opened = {}, []
    for index, token in enumerate(tokens):
        if token.kind != "sign":
            continue
        if token.text in "([{":
            opened.append(index)
        elif token.text in ")]}" and opened:
            pairs[opened[-1]] = index
            pairs[index] = opened.pop()
    return pairs


def find_bodies(tokens, pairs):
    """(first, last, name) of each outermost function body: the tokens between its braces."""
    bodies, index, head = [], 0, 0
    while index < len(tokens):
        text = tokens[index].text if tokens[index].kind == "sign" else None
        if text == "(" and index in pairs:
            index = pairs[index]  # neither a semicolon nor a brace in there ends a declaration
        elif text in (";", "}"):
            head = index + 1
        elif text == "{" and index in pairs:
            words = tokens[head:index]
            what, name = judge_head(words, pairs, head)
            if what == "function" and is_initializer(tokens, pairs, index):
                index = pairs[index]  # m_member{value} of a constructor
            elif what == "function":
                bodies.append((index + 1, pairs[index], name))
                index = pairs[index]
                head = index + 1
            elif what == "scope":
                head = index + 1
            else:
                index = pairs[index]
        index += 1
    return bodies


def judge_head(words, pairs, begin):
    """What the brace behind these tokens opens, and the name of the function: function, scope or value."""
    texts = [word.text for word in words]
    if "namespace" in texts or "extern" in texts and '"C"' in texts:
        return "scope", ""
    plain, depth = [], 0
    for offset, word in enumerate(words):  # without what template<…> says
        if word.text == "<" and (depth or offset and texts[offset - 1] == "template"):
            depth += 1
        elif word.text == ">" and depth:
            depth -= 1
        elif not depth:
            plain.append((offset, word.text))
    bare = [text for _, text in plain]
    if "enum" in bare:
        return "value", ""
    opening = next((offset for offset, text in plain if text == "("), None)
    if opening is None:
        return ("scope" if {"class", "struct", "union"} & set(bare) else "value"), ""
    operator = "operator" in texts[:opening]
    if "=" in texts[:opening] and not operator:
        return "value", ""
    return "function", name_before(texts, opening)


def name_before(texts, opening):
    """NetTCP::Recv, of the tokens before its parenthesis."""
    if "operator" in texts[:opening + 1]:
        at = texts.index("operator")
        parts = ["operator" + ("()" if at + 1 == opening else "".join(texts[at + 1:opening]))]
    else:
        at = opening - 1
        parts = [texts[at]]
        if at and texts[at - 1] == "~":
            at -= 1
            parts = ["~" + parts[0]]
    while at >= 2 and texts[at - 1] == "::":
        at -= 2
        if texts[at] == ">":  # of a template's members the template alone
            while at and texts[at] != "<":
                at -= 1
            at -= 1
        parts.insert(0, texts[at])
    return "::".join(parts)


def is_initializer(tokens, pairs, index):
    """The brace initializes a member in a constructor's list: a colon or comma, a name, then it without a blank."""
    before = tokens[index - 1]
    return before.kind == "name" and before.end == tokens[index].begin


class BODY:
    """The mutants of one function."""

    def __init__(self, file, source, tokens, pairs, first, last, name):
        self.file, self.source, self.tokens, self.pairs, self.name = file, source, tokens, pairs, name
        self.first, self.last = first, last
        self.found = []
        self.alone = self._left_alone()

    def _add(self, kind, begin, end, becomes):
        self.found.append(Mutant(self.file, self.source, kind, self.name, begin, end, becomes))

    def _left_alone(self):
        """The indices of tokens that no mutation may touch."""
        alone, index = set(), self.first
        while index < self.last:
            token = self.tokens[index]
            if token.kind == "name" and token.text in LEFT_ALONE:
                end = self._end_of(index, ":" if token.text == "case" else ";")
                if token.text == "constexpr" and self.tokens[index - 1].text == "if":
                    end = self.pairs.get(index + 1, index)
                alone.update(range(index, end + 1))
                index = end
            elif token.text == "<" and self._opens_template(index):
                end = self._end_of_template(index)
                alone.update(range(index, end + 1))
                index = end
            elif token.text == "[" and (self.tokens[index + 1].text == "[" or self._is_array_declared(index)):
                alone.update(range(index, self.pairs[index] + 1))
            index += 1
        return alone

    def _end_of(self, index, sign):
        """The sign that ends what begins at the index, brackets passed over."""
        while index < self.last and self.tokens[index].text != sign:
            if self.tokens[index].text in ("(", "[", "{") and index in self.pairs:
                index = self.pairs[index]
                if self.tokens[index].text == "}" and sign == ";" and self.tokens[index + 1].text not in (";", ","):
                    break
            index += 1
        return min(index, self.last)

    def _is_array_declared(self, index):
        """char text[2 * 8 + 1]; more room does no harm."""
        before = self.tokens[index - 2]
        return self.tokens[index - 1].kind == "name" and \
            (before.kind == "name" and before.text not in STATEMENTS or
             before.text in (">", "*") and not self._is_spaced(index - 2))

    def _opens_template(self, index):
        """vector<int>: no blank on its left, a name before it."""
        return self.tokens[index - 1].kind == "name" and self.tokens[index - 1].end == self.tokens[index].begin

    def _end_of_template(self, index):
        depth = 0
        for at in range(index, self.last):
            text = self.tokens[at].text
            depth += text.count("<") if text in ("<", "<<") else 0
            depth -= 1 if text == ">" else 0
            if depth == 0:
                return at
            if text in (";", "{"):
                break
        return index

    def find(self):
        for index in range(self.first, self.last):
            if index not in self.alone:
                self._sign(index)
                self._word(index)
        self._conditions()
        self._statements()
        return self.found

    def _is_spaced(self, index):
        token = self.tokens[index]
        return self.source[token.begin - 1].isspace() and self.source[token.end].isspace()

    def _sign(self, index):
        token = self.tokens[index]
        if token.kind != "sign":
            return
        if token.text in SPACED and self._is_spaced(index) and self.tokens[index - 1].text not in ("return", "operator"):
            self._add(KINDS.get(token.text, "condition"), token.begin, token.end, SPACED[token.text])
        elif token.text in UNSPACED:
            self._add("arithmetic", token.begin, token.end, UNSPACED[token.text])
        elif token.text == "!":
            self._add("condition", token.begin, token.end, "")

    def _word(self, index):
        token = self.tokens[index]
        if token.kind == "name" and token.text in WORDS:
            self._add("constant", token.begin, token.end, WORDS[token.text])
        elif token.kind == "number":
            number = re.fullmatch(r"(0[xX][\da-fA-F']+|\d[\d']*)([uUlLzZ]*)", token.text)
            if number:
                value = int(number[1].replace("'", ""), 0 if number[1][:2].lower() == "0x" else 10)
                self._add("constant", token.begin, token.end, f"{value + 1}{number[2]}")

    def _conditions(self):
        """The whole condition of an if or a loop the other way round."""
        for index in range(self.first, self.last - 1):
            token, opening = self.tokens[index], index + 1
            if token.text not in ("if", "while") or self.tokens[opening].text != "(" or index in self.alone:
                continue
            inside = range(opening + 1, self.pairs[opening])
            texts = [self.tokens[at].text for at in inside]
            begin = self.tokens[opening].end
            if ";" in texts:  # if (init; condition)
                begin = self.tokens[inside[len(texts) - 1 - texts[::-1].index(";")]].end
            elif "=" in texts:
                continue  # if (const auto x = …), which is no expression
            end = self.tokens[self.pairs[opening]].begin
            condition = self.source[begin:end].strip()
            if not self._turns_by_its_sign(begin, self.pairs[opening]):
                begin = end - len(self.source[begin:end].lstrip())
                self._add("condition", begin, end, f"!({condition})")

    def _turns_by_its_sign(self, begin, end):
        """One negation or one comparison for equality: to change that sign is the same."""
        inside = [index for index in range(self.first, end) if self.tokens[index].begin >= begin]
        texts = [token.text for token in self._flat(inside[0], end)] if inside else []
        if any(text in ("&&", "||", "?") for text in texts):
            return False
        return texts[:1] == ["!"] or "==" in texts or "!=" in texts

    def _statements(self):
        """Calls, assignments, jumps and locks left out."""
        index = self.first
        while index < self.last:
            if self._begins_statement(index):
                end = self._end_of(index, ";")
                if self.tokens[end].text == ";" and index not in self.alone:
                    self._statement(index, end)
            index += 1

    def _begins_statement(self, index):
        before = self.tokens[index - 1].text
        if self.tokens[index].kind != "name" and self.tokens[index].text not in ("(", "*", "::", "++", "--"):
            return False
        if before == ")":
            opening = self.pairs.get(index - 1)
            return opening is not None and self.tokens[opening - 1].text in ("if", "for", "while")
        if before == ":":  # of a case
            return any(self.tokens[at].text in ("case", "default") for at in range(max(self.first, index - 8), index - 1)
                       if ";" not in [token.text for token in self.tokens[at:index]])
        if before == ";" and self._stands_in_for(index):
            return False
        return before in ("{", "}", ";", "else", "do")

    def _stands_in_for(self, index):
        """Between the parentheses of a for, where a semicolon ends no statement."""
        depth = 0
        for at in range(index - 1, max(self.first, index - 200), -1):
            text = self.tokens[at].text
            depth += text in (")", "}", "]")
            depth -= text in ("(", "{", "[")
            if depth < 0:
                return text == "("
        return False

    def _statement(self, index, end):
        begin_token, tokens = self.tokens[index], self.tokens[index:end]
        text = self.source[begin_token.begin:self.tokens[end].begin]
        if begin_token.text in ("break", "continue") and len(tokens) == 1:
            self._add("jump", begin_token.begin, self.tokens[end].begin, "")
            return
        if not tokens or any(token.text in ("{", "}") for token in tokens) or begin_token.text in STATEMENTS:
            return
        flat = self._flat(index, end)
        texts = [token.text for token in flat]
        declares = any(a.kind == "name" and b.kind == "name" for a, b in zip(flat, flat[1:])) or \
            re.match(r"(?:const |auto\b|[\w:]+(?:<[^;=]*>)?[*&]* [\w]+ ?[({=;])", text) is not None
        if declares:
            if LOCKS.search(text.split("(")[0]) and "=" not in texts:
                self._add("lock", begin_token.begin, self.tokens[end].end, ";")
            return
        if "=" in texts or any(sign in texts for sign in ("+=", "-=", "|=", "&=", "*=", "/=", "^=")):
            self._add("assignment", begin_token.begin, self.tokens[end].begin, "")
        elif self.tokens[end - 1].text == ")":
            self._add("call", begin_token.begin, self.tokens[end].begin, "")

    def _flat(self, index, end):
        """The tokens of a statement without what stands in brackets."""
        flat = []
        while index < end:
            flat.append(self.tokens[index])
            if self.tokens[index].text in ("(", "[") and index in self.pairs:
                index = self.pairs[index]
                flat.append(self.tokens[index])
            index += 1
        return flat


def find_mutants(file, source):
    """All mutants of a source, in its order."""
    tokens = tokenize(source)
    pairs = match_brackets(tokens)
    found = []
    for first, last, name in find_bodies(tokens, pairs):
        found += BODY(file, source, tokens, pairs, first, last, name).find()
    found.sort(key=lambda mutant: (mutant.begin, mutant.end, mutant.becomes))
    seen = collections.Counter()
    for mutant in found:
        seen[mutant.key] += 1
        mutant.number = seen[mutant.key]
    return found
