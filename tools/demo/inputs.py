"""Makes two inputs for the demonstration: ten seconds of sound and a chat log.

    inputs.py DIRECTORY
"""

import math
import os
import struct
import sys
import wave

RATE = 48000
SECONDS = 10
PERIOD = RATE // 20  # frames after which both tones have come back to their beginning


def frame(number):
    """Two tones, one for each channel, as signed samples of 16 bits."""
    tones = (8000 * math.sin(2 * math.pi * hertz * number / RATE) for hertz in (440, 660))
    return struct.pack("<hh", *(round(tone) for tone in tones))


def write_sound(path):
    period = b"".join(frame(number) for number in range(PERIOD))
    with wave.open(path, "wb") as sound:
        sound.setnchannels(2)
        sound.setsampwidth(2)
        sound.setframerate(RATE)
        sound.writeframes(period * (SECONDS * RATE // PERIOD))


def write_chat(path):
    names = ("Ada", "Björn", "Chiyo")
    texts = ("Can everybody hear me?", "Yes, loud and clear.", "Let us look at the next page.",
             "The figure on the left is new.", "Could you say that again, please?")
    with open(path, "w", encoding="utf-8") as chat:
        for line in range(400):
            time = f"{line // 720:02}:{line // 12 % 60:02}:{line % 12 * 5:02}"
            chat.write(f"{time} {names[line % 3]}: {texts[line * 7 % 5]}\n")


if __name__ == "__main__":
    try:
        write_sound(os.path.join(sys.argv[1], "sound.wav"))
        write_chat(os.path.join(sys.argv[1], "chat.log"))
    except OSError as error:
        sys.exit(f"demo: cannot write the inputs: {error.strerror}")
