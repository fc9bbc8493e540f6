import gzip
import hashlib
import pathlib
import random
import resource

import pytest

import tavo_util
from tavo_util import AddressRange, Image, MapCell, MapRange


def test_bytes_and_parts(image):
    assert image.byte_count == 3070 and image.pages == 13 and image
    assert image.ranges == (AddressRange(0, 2999), AddressRange(0x2000, 0x2045))
    whole = bytes(image)
    assert len(whole) == 0x2046 and whole[3000:0x2000] == b"\xff" * (0x2000 - 3000)
    part = image[0x10:0x2002]
    assert bytes(part) == whole[0x10:0x2002] and part[0x2001] == whole[0x2001]
    assert 0x2045 in image and 0x2046 not in image and 1 << 24 not in image
    assert not image[3000:0x2000] and bytes(Image()) == b""
    with pytest.raises(IndexError, match="0x000BB8"):
        image[3000]
    for wrong in (slice(0, 8, 2), slice(-4, None), -1, 1 << 40):
        with pytest.raises(IndexError):
            image[wrong]
    assert image[0x2000:1 << 70] == image[0x2000:] and -1 not in image
    for wrong in ("16", 1.5):
        with pytest.raises(TypeError):
            image[wrong:]
    with pytest.raises(TypeError):
        list(image)  # nor up to the first gap


def test_views_share_their_bytes(image):
    large = Image.from_bytes(random.Random(1).randbytes(8 << 20))
    before = memoryview(large)
    kept = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    views = [memoryview(large)[part:] for part in range(50)]
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - kept < 16 << 10  # KiB; fifty copies are 400 MiB
    assert before.readonly and before.obj is large and before[-1] == views[-1][-1] == large[(8 << 20) - 1]
    del large, before
    assert Image.from_bytes(views[0][:3000], 7)[7] == views[0][0]  # a view outlives the name of its image
    assert Image.from_bytes(memoryview(image)[:3000]) == image[:3000]


def test_equal_images_are_one_key(image, tmp_path):
    same = image[:0x1000] | image[0x2000:]
    assert same == image and hash(same) == hash(image) and {image: 1}[same] == 1
    assert image != image[1:] and image != "image"
    assert image[:3000].identity == hashlib.sha256(bytes(image[:3000])).hexdigest()
    with pytest.raises(ValueError, match="0x000004"):
        image | Image({4: bytes([image[4] ^ 1])})
    with pytest.raises(ValueError, match="24 address bits"):
        Image({(1 << 24) - 1: b"ab"})


@pytest.mark.parametrize("name", ["i.hex", "i.srec", "i.bin", "f\udcff.hex"])
def test_files(image, tmp_path, name):
    path = tmp_path / name
    if name.endswith("bin"):
        image = image[:3000]
    digest = image.write(path)
    assert digest == hashlib.sha256(path.read_bytes()).hexdigest()
    back = Image.read(path)
    assert back == image and back.name == str(path)
    packed = pathlib.Path(f"{path}.gz")
    packed.write_bytes(gzip.compress(path.read_bytes()))
    assert Image.read(packed) == image
    with pytest.raises(tavo_util.FileFailed, match="exists") as caught:
        image.write(path)
    assert "replace=True" in caught.value.hint
    image[:16].write(path, replace=True)
    assert Image.read(str(path)) == image[:16]


def test_a_bad_file_is_refused_with_its_lines(tmp_path):
    path = tmp_path / "bad.hex"
    path.write_text(":0100000001FF\n:00000001FF\n")
    with pytest.raises(tavo_util.ImageRefused, match="line 1") as caught:
        Image.read(path)
    error = caught.value
    assert "wrong checksum: expected FE" in tavo_util.job_page("check", error=error)
    assert error.problem == "file-refused" and error.details and error.hint is not None
    assert error.state.flash is tavo_util.FlashState.UNTOUCHED and str(error.state) == "device not touched"
    found = Image.check(path)
    assert not found and found.fault_count == 1 and found.format == "hex" and found.file_bytes == 26
    fault, = found.faults
    assert fault.line == 1 and fault.hint and fault.offset is None and str(fault) in error.details[0]
    with pytest.raises(tavo_util.ImageRefused):
        Image.read(path, format="srec")
    with pytest.raises(ValueError, match="hex, srec"):
        Image.read(path, format="word")
    with pytest.raises(tavo_util.FileFailed):
        Image.read(tmp_path / "none.hex")


def test_addresses_of_raw_binaries_and_chips(tmp_path):
    path = tmp_path / "raw.bin"
    path.write_bytes(b"abcd")
    assert Image.read(path, address=0x100).ranges == (AddressRange(0x100, 0x103),)
    told = Image.check(path)
    assert told and told.format == "bin" and told.sha256 == hashlib.sha256(b"abcd").hexdigest() and told.image[3] == ord("d")
    with pytest.raises(tavo_util.ImageRefused):
        Image.read(path, address=0x100, chip_size=0x102)
    assert tavo_util.parse_range("64K+4K") == AddressRange(0x10000, 0x10FFF)
    assert str(AddressRange(0x10000, 0x10FFF)) == "0x010000-0x010FFF"
    layout = tmp_path / "flash.layout"
    layout.write_text("0000-0fff boot\n")
    assert tavo_util.parse_range("boot", layout).size == 4096
    assert tavo_util.load_layout(layout) == (tavo_util.NamedRange("boot", AddressRange(0, 0xFFF)),)
    assert AddressRange(0x1100, 0x3EFF).aligned(4096) == (AddressRange(0x1000, 0x3FFF), AddressRange(0x2000, 0x2FFF))
    assert [tavo_util.parse_number(text) for text in ("0x10", "64K", "64k5")] == [16, 65536, None]
    assert tavo_util.printable("a\x1b\udcff\n") == "a\\x1B\\xFF\\x0A"
    with pytest.raises(tavo_util.BadArgument):
        tavo_util.parse_range("boot")
    for wrong in (lambda: AddressRange(2, 1), lambda: AddressRange(0, 1).aligned(0), lambda: Image().map(1 << 25)):
        with pytest.raises(ValueError):
            wrong()


def test_forecast_and_comparison(image):
    told = tavo_util.forecast(image, backup="before.hex")
    assert "backup" in told.steps and told.pages_written == 13 and told.least_seconds < told.seconds
    with pytest.raises(tavo_util.BadArgument):
        tavo_util.forecast(image, full=True, keep=True)
    other = image[:0x2000] | Image.from_bytes(bytes(70), 0x2000)
    found = image.compare(other)
    assert not found.equal and found.pages == 1 and found.differences[0].range.first == 0x2000
    assert image.compare(image).equal and image.compare(other, range=AddressRange(0, 0x1FFF)).equal
    drawn = image.map_on_chip(other, 64 << 10)
    assert str(drawn).startswith("=" * 47) and drawn.letters[0x2000 // drawn.cell_size] == "X"
    assert {count.cell: count.count for count in drawn.legend}[MapCell.DIFFERS] == 2
    assert MapRange(AddressRange(0x2000, 0x20FF), MapCell.DIFFERS) in drawn.ranges
    assert image.map().size == 16 << 10 and image.map().legend[0].text and other.map_contents(64 << 10).letters[-1] == "?"
    assert Image({0: b"\xff" * 256}).blank_pages == 1
