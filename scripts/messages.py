#!/usr/bin/env python3
"""Looks for the messages of the libraries in the tests: every text that a log line or a result carries has to be
expected, word for word, by some test. Prints those that are not; exit status 1 if there are any.

Texts of assertions are left out: they are the code itself. What a format fills in may be anything in the test.
"""
import glob
import os
import re
import sys

os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

LITERAL = r'"((?:[^"\\]|\\.)*)"'
CALLS = re.compile(r"\b(KY_LOG|KY_LOG_RESULT|KY_LOG_FATAL|KY_BRIDGE_FAILURE|LogResult|KyResult|OutOfMemory|SyncSetting)\s*\(")
# Names of functions and of log categories, formats without a word of their own, names of features and registers.
NO_MESSAGE = re.compile(r"^(KySerialLib::|KySerialBridge::|Ky[A-Za-z0-9]*::|[%\w]+$)")


# Messages that no test can produce, each with its reason.
UNREACHABLE = {
    "Could not convert baud rate value to Camera Link baud rate bitmask.":
        "after a check with the same table of rates",
    "The sink has been registered already.":
        "each of the library's sinks registers itself once in its life; for what else may be linked with the C interface",
}


def read(pattern):
    return {path: open(path, encoding="utf-8").read() for path in glob.glob(pattern, recursive=True)}


def join_literals(text):
    """Adjacent literals become one, as for the compiler."""
    return re.sub(r'"\s*\n?\s*"', "", text)


def arguments(text, start):
    """The text between the parenthesis at start and its partner."""
    depth = 0
    inside = False
    for index in range(start, len(text)):
        character = text[index]
        if character == '"' and text[index - 1] != "\\":
            inside = not inside
        depth += 0 if inside else {"(": 1, ")": -1}.get(character, 0)
        if depth == 0:
            return text[start:index]
    return text[start:]


def collect():
    messages = {}
    for path, text in read("Libraries/**/*.cpp").items() | read("Libraries/**/*.h").items():
        text = join_literals(text)
        for call in CALLS.finditer(text):
            for literal in re.findall(LITERAL, arguments(text, call.end() - 1)):
                if not NO_MESSAGE.match(literal) and " " in literal:
                    messages.setdefault(literal, path)
        # Texts that stand in a table or a constant.
        for literal in re.findall(r"constexpr char c\w+\[\]\s*=\s*" + LITERAL, text):
            if " " in literal:
                messages.setdefault(literal, path)
    return messages


def is_expected(message, tests):
    # The parts between what a format fills in, in this order and on one line.
    parts = [re.escape(part) for part in re.split(r"%[-+0 #]*\d*(?:\.\d+)?(?:hh?|ll?|z|j)?[a-zA-Z]", message)]
    return re.search(r".{0,60}?".join(parts), tests) is not None


def main():
    tests = join_literals("\n".join(text for kind in ("cpp", "h", "c") for text in read(f"Tests/**/*.{kind}").values()))
    # A text that a test puts together from parts is compared without the joints.
    tests += re.sub(r'"\s*\+?\s*(?:std::string|std::to_string|KyString)?\(?[\w:.() ]*\)?\s*\+\s*"', "~", tests)
    messages = collect()
    missing = sorted((path, text) for text, path in messages.items()
                     if not is_expected(text, tests) and text not in UNREACHABLE)
    for path, text in missing:
        print(f'{path}: "{text}"')
    print(f"{len(messages)} messages, {len(missing)} that no test expects, "
          f"{len(UNREACHABLE.keys() & messages.keys())} that none can")
    return 1 if missing else 0


sys.exit(main())
