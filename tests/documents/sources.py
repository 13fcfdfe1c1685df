"""What the sources say, for the tests that compare the documents with it."""

import pathlib
import re

PROJECT = pathlib.Path(__file__).resolve().parents[2]

_LITERAL = r'"(?:[^"\\]|\\.)*"'
_LOGGING = re.compile(r"\bq(?:Warning|Info|Debug|Critical|Fatal)\(\)\s*<<([^;]*);", re.S)
_ANY_LOGGING = re.compile(r"\bq(?:C?Warning|C?Info|C?Debug|C?Critical|Fatal)\b")
# A constant that holds a text, and a parameter through which a text comes in.
_CONSTANT = re.compile(rf"const char \*const (\w+) =\s*({_LITERAL});")
_TEXT_FUNCTION = re.compile(r"(\w+)\([^;{}]*const char \*(\w+)(?:, [^;{}()]*)?\)\s*\{")


def read(path):
    return (PROJECT / path).read_text(encoding="utf-8")


def source_files(room, *endings):
    return sorted(path for ending in endings for path in (PROJECT / room).rglob("*" + ending))


def exits():
    """The programs of exits/, by the names under which the tool runs them."""
    return {path.parent.name for path in (PROJECT / "exits").glob("*/main.cpp")}


def code_of(path):
    """The text without comments; what looks like one inside a literal stays. Literals side by side
    are one."""
    pattern = re.compile(_LITERAL + r"|//[^\n]*|/\*.*?\*/", re.S)
    text = pattern.sub(
        lambda match: match[0] if match[0].startswith('"') else " ",
        path.read_text(encoding="utf-8"),
    )
    return re.sub(r'"\s+"', "", text)


def normalised(message):
    """A message for comparing: blanks once, a row of values as one, none at the end."""
    message = re.sub(r"…(\s+…)+", "…", " ".join(message.split()))
    return message[:-2] if message.endswith(" …") else message


def _text(literal):
    return literal[1:-1].replace('\\"', '"').replace("\\\\", "\\")


def _first_argument(expression):
    """The expression up to the comma or bracket that ends it as an argument."""
    depth = 0
    for match in re.finditer(rf"{_LITERAL}|[(),]", expression):
        if match[0] == "(":
            depth += 1
        elif match[0] in "),":
            if depth == 0:
                return expression[: match.start()]
            depth -= match[0] == ")"
    return expression


def _texts_passed_to(function, code):
    """The literals that stand as an argument of calls."""
    calls = re.finditer(rf"\b{function}\(([^;{{]*?)\)", code)
    return {_text(literal) for call in calls for literal in re.findall(_LITERAL, call[1])}


def _alternatives(item, code):
    """What an item of a stream can show."""
    literal = re.fullmatch(rf"(?:QStringLiteral\()?({_LITERAL})\)?", item)
    if literal:
        text = _text(literal[1])
        # The stream puts quotes around a QString.
        return {f'"{text}"' if item.startswith("Q") else text}
    for name, text in _CONSTANT.findall(code):
        if name == item:
            return {_text(text)}
    for function, parameter in _TEXT_FUNCTION.findall(code):
        if parameter == item:
            return _texts_passed_to(function, code)
    return {"…"}


def log_messages():
    """The normalised messages of all statements below src/ that log."""
    messages = set()
    for path in source_files("src", ".cpp", ".h"):
        code = code_of(path)
        for match in _LOGGING.finditer(code):
            composed = {""}
            for item in _first_argument(match[1]).split("<<"):
                texts = _alternatives(item.strip(), code)
                composed = {f"{begin} {text}" for begin in composed for text in texts}
            messages |= {normalised(message) for message in composed}
    return messages


def unread_log_statements():
    """Places that log in a form that log_messages() does not read."""
    places = []
    for path in source_files("src", ".cpp", ".h"):
        code = code_of(path)
        if len(_ANY_LOGGING.findall(code)) != len(_LOGGING.findall(code)):
            places.append(path.name)
    return places


def segment_failures():
    """The reasons that end up inside other messages."""
    code = code_of(PROJECT / "src/ProcessData/Linux/SharedMemory.cpp")
    return {normalised(text + " …") for text in _texts_passed_to("recordFailure", code)}
