#!/usr/bin/env python3
"""Opens UART 0 of a simulated camera, asks the lens controller on it for its state and prints the answer."""
import sys

import kyserial


def ask_lens(camera):
    """What an application does with its camera."""
    with kyserial.Port(camera, "uart0", timeout=5) as port:
        port.write(b"STATUS?\r\n")
        return port.readline().decode().strip()


def main():
    """Prints the answer; the exit status is 1 without an answer."""
    try:
        with kyserial.SimulatedCamera() as camera:
            camera.plug("uart0", "lens")
            answer = ask_lens(camera)
    except kyserial.KySerialError as error:
        print(f"{error.name}: {error.text}", file=sys.stderr)
        return 1
    print(answer)
    return 0 if answer else 1


if __name__ == "__main__":
    sys.exit(main())
