"""The layout of a container; docs/container-format.md describes it.

All integers are unsigned and little-endian, all offsets are absolute.
"""

from __future__ import annotations

import struct
from typing import NamedTuple, Optional, Tuple

HEADER_SIZE = 24
ENTRY_SIZE = 32
CONF_SIZE = 72
CONF_TAG = 274
CONF_TYPE = 100
PACKED, CHAINED = 0, 1
MAX_OFFSET = 0xFFFFFFFF

MAX_ENTRIES_READ = 4194304  #: the most entries, known or not, that a walk of an index reads
MAX_KNOWN_ENTRIES = 1048576  #: the most entries with known tags that a reader keeps

HEADER = struct.Struct("<HHIIIII")
#: tag, n, extra value, data offset, noted length, next offset
ENTRY = struct.Struct("<HxxII4xIII4x")
CONF = struct.Struct("<8xI40xI16x")

#: tag: (data type, kind)
TAGS = {
    256: (1, 2), 257: (3, 2), 258: (8, 2), 259: (10, 2), 260: (16, 2), 261: (5, 4),
    266: (99, 4), 267: (99, 1), 268: (4, 4), 269: (4, 1), 270: (20, 4), 271: (20, 1),
    272: (21, 4), 273: (21, 1), 274: (100, 2), 276: (6, 4), 277: (6, 1), 284: (102, 2),
    286: (51, 4), 287: (51, 1),
}  # fmt: skip
_FIXED_ID = (274, 284)  # tags whose file id is the data type for any n
_TAG_OF = {pair: tag for tag, pair in TAGS.items()}
_INVERSE_OF_125 = 0x26E978D5  # modulo 2^32


class Header(NamedTuple):
    """The words of the file header. All are 0 if the file is shorter than a header."""

    size: int  #: the size of the container, as its writer noted it
    must_be_zero: int
    entry_count: int
    index_type: int  #: PACKED or CHAINED

    @property
    def accepted(self) -> bool:
        """Whether a reader accepts the container."""
        good_words = self.size != 0 and self.must_be_zero == 0 and self.entry_count != 0
        return good_words and self.index_type in (PACKED, CHAINED)


def parse_header(data: bytes) -> Header:
    """Parses the header at the beginning of data."""
    if len(data) < HEADER_SIZE:
        return Header(0, 0, 0, 0)
    return Header(*HEADER.unpack_from(data)[3:])


def file_id(tag: int, number: int) -> int:
    """Returns the file id of an entry with a known tag, computed in 32 bits."""
    data_type = TAGS[tag][0]
    return data_type if tag in _FIXED_ID else (number * 1000 + data_type) & MAX_OFFSET


def tag_and_number(data_type: int, stream_id: int, kind: int) -> Optional[Tuple[int, int]]:
    """Returns the tag and the smallest n for this type, id and kind, or None."""
    tag = _TAG_OF.get((data_type, kind))
    if tag is None:
        return None
    if tag in _FIXED_ID:
        return (tag, 0) if stream_id == data_type else None
    # Solves n * 1000 = product modulo 2^32. Since 1000 = 8 * 125, the product must be a multiple of
    # 8; then n is product / 8 times the inverse of 125 modulo 2^29.
    product = (stream_id - data_type) & MAX_OFFSET
    if product % 8 or not 0 <= stream_id <= MAX_OFFSET:
        return None
    return tag, (product // 8 * _INVERSE_OF_125) & 0x1FFFFFFF


def stream_name(data_type: int, stream_id: int, kind: int) -> str:
    """TYPE:ID:KIND, as on the command line."""
    return f"{data_type}:{stream_id}:{kind}"


def stream_file_name(data_type: int, stream_id: int, kind: int) -> str:
    """TYPE_ID-KIND.dat, the name of a record file in a recording directory."""
    return f"{data_type}_{stream_id}-{kind}.dat"
