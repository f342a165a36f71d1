"""The program that the package's README shows."""
import pathlib
import re
import subprocess
import sys

README = pathlib.Path(__file__).parents[2] / "Bindings/python/README.md"


def test_it_prints_what_its_comments_say():
    program = re.search(r"```python\n(.*?)```", README.read_text(encoding="utf-8"), re.S).group(1)
    expected = "".join(f"{said}\n" for said in re.findall(r"print\(.*\) +# (.*)", program))
    run = subprocess.run([sys.executable, "-B", "-c", program], capture_output=True, text=True, timeout=60, check=True)
    assert expected and run.stdout == expected
