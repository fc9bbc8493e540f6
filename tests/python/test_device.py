"""Every operation once for real on a simulated interface, and what it leaves there."""

import dataclasses

import pytest

import tavo_util
from tavo_util import (AddressRange, BackupKind, DomainEntry, EventKind, FlashState, Image, Mode, Phase, ProgramWay,
                       ResetBy, Scb0Role, Verdict)

pytestmark = pytest.mark.tavo(size="64K")


@pytest.fixture(autouse=True)
def everything_released(tavo_interface):
    yield
    assert not tavo_interface.leftovers and not tavo_interface.violations


def test_program_verify_read_erase(tavo_device, tavo_interface, image, tmp_path):
    events = []
    done = tavo_device.program(image, backup=tmp_path / "before.bin", progress=events.append)
    assert done.pages_written == 13 and not done.up_to_date and done.state.flash is FlashState.PROGRAMMED
    assert tavo_interface.flash[:0x2046] == bytes(image) and done.backup.endswith("before.bin")
    assert Image.read(done.backup).byte_count == 64 << 10
    assert {event.phase for event in events} >= {Phase.BACKUP, Phase.PROGRAM, Phase.VERIFY}
    assert any(str(event) == "backup: 100 %" for event in events if event.kind is EventKind.PROGRESS)
    assert tavo_device.program(image, if_different=True).way is ProgramWay.NOTHING

    assert tavo_device.verify(image, rest_blank=True)
    found = tavo_device.verify(image | Image({0x5000: b"\0"}), every=True, clock_hz=3_000_000)
    assert not found and found.comparison.differences[0].wanted == 0 and found.is_complete
    assert 0x5000 in found.contents and found.state.flash is FlashState.UNCHANGED

    part = AddressRange(0x100, 0x1FF)
    assert tavo_device.read(range=part).contents == image[0x100:0x200]
    assert bytes(tavo_device.read().contents) == tavo_interface.flash
    assert tavo_device.program(Image({0x6000: b"part"}), range=AddressRange(0x6000, 0x6FFF)).pages_written == 1
    assert tavo_device.verify(image)
    assert tavo_device.erase(range=AddressRange(0x6000, 0x6FFF)).sectors_erased == 1
    with pytest.raises(tavo_util.BadArgument, match="sector|border|multiple") as caught:
        tavo_device.erase(range=part)
    assert isinstance(caught.value, ValueError) and caught.value.hint
    check = tavo_device.blank_check(range=AddressRange(0x4000, 0xFFFF))
    assert check and check.pages == 0 and check.first is None
    assert tavo_device.blank_check().first == 0
    erased = tavo_device.erase(backup=tmp_path / "f\udcff.hex", no_backup=True)
    assert erased.state.flash is FlashState.ERASED and erased.backup.endswith("f\udcff.hex")
    assert Image.read(erased.backup).compare(image, range=AddressRange(0, 2999)).equal and tavo_device.blank_check()
    assert tavo_device.inspect_flash().size == 64 << 10


def test_neuron(tavo_device, tavo_interface):
    tavo_interface.set_neuron(id="0501A2B3C4D5", growth="00030000000000000001")
    assert tavo_device.neuron_id() == "0501A2B3C4D5" and len(tavo_device.program_id()) == 16
    tavo_device.status()
    status = tavo_device.status()
    assert status.node_state_name and status.transmit_errors == 3 and status.missed_messages == 1
    change = tavo_device.set_mode(Mode.OFFLINE)
    assert change.after.node_state == 6 and change.after.node_state_name.endswith("offline")
    assert tavo_interface.neuron["state"].endswith("6")
    assert tavo_device.reset() > 1.5 and tavo_device.reset(ResetBy.MESSAGE) >= 1
    assert tavo_device.press_service_pin() < 1

    looks = []
    seen = tavo_device.watch(interval=0.01, looks=3, on_look=looks.append)
    assert len(looks) == 3 and seen.looks == tuple(looks) and seen.total[0] == 6 and seen.unanswered == 0
    assert seen.last_answered is seen.looks[2]
    page = tavo_util.job_page("watch", device=tavo_device.description, watched=seen)
    assert "transmit errors" in page and "transmit errors" not in tavo_util.job_page("watch")
    counted = [getattr(status, counter.key) for counter in tavo_util.STATUS_COUNTERS]
    assert counted == [3, 0, 0, 0, 1] and "noise" in tavo_util.STATUS_COUNTERS[0].meaning


def test_domain_table(tavo_device, tmp_path):
    before = tavo_device.domain_table()
    wanted = (DomainEntry(b"\x01\x02\x03", 1, 2, bytes(range(6))), dataclasses.replace(before[1], in_use=False))
    assert "key" not in repr(wanted[0])
    done = tavo_device.write_domain_table(before, wanted, source=tmp_path / "wanted.json", no_backup=True)
    assert done.changed == (0,) and not done.backup and tavo_device.domain_table() == wanted
    changed = (wanted[0], dataclasses.replace(wanted[1], in_use=True, domain_id=b"", subnet=9))
    kept = tavo_util.load_domains(tavo_device.write_domain_table(wanted, changed).backup)
    assert [entry.has_key for entry in kept] == [False, True] and kept[0].entry.domain_id == b"\x01\x02\x03"
    assert tavo_util.domains_with(changed, kept)[0].key == wanted[0].key
    file = tmp_path / "domains.json"
    file.write_text(tavo_util.domain_table_text(changed, keep_keys=True))
    assert tavo_util.load_domains(file, only=0)[0].entry == changed[0] and str(changed[0].key.hex()) in file.read_text()
    file.write_text("{}")
    with pytest.raises(tavo_util.ImageRefused):
        tavo_util.load_domains(file)
    for entry in wanted:
        assert DomainEntry.from_bytes(bytes(entry)) == entry
    with pytest.raises(ValueError, match="0, 1, 3 or 6"):
        tavo_device.write_domain_table(before, (DomainEntry(b"ab"), before[1]))
    with pytest.raises(ValueError):
        DomainEntry(node=128)


def test_configuration(tavo_device, tmp_path):
    block = tavo_device.configuration()
    fields = tavo_util.configuration_fields(block)
    assert fields.serial == "00001234" and fields.vendor_id == 0x04B4 and fields.scb0 == "SPI" and not fields.why_bad
    planned = tavo_device.set_serial_number("00009999", dry_run=True)
    assert planned.changes_anything and not planned.written and tavo_device.configuration() == block
    assert {change.field for change in planned.changes} == {"checksum", "serial number"} and not planned.backup
    done = tavo_device.set_serial_number("00009999", backup=tmp_path / "before.bin", no_backup=True)
    assert done.written and done.backup.endswith("before.bin") and not tavo_device.backups()
    assert tavo_util.load_configuration(tmp_path / "before.bin") == block == done.before
    assert tavo_util.configuration_fields(tavo_device.configuration()).serial == "00009999"
    assert tavo_device.write_configuration(block, dry_run=True).pending_serial == "00009999"
    back = tavo_device.write_configuration(block, serial="00001234")
    assert back.after == block and not planned.pending_serial
    tavo_util.save_configuration(tmp_path / "now.bin", block)
    with pytest.raises(tavo_util.FileFailed):
        tavo_util.save_configuration(tmp_path / "now.bin", block)
    assert tavo_util.load_configuration(tmp_path / "now.bin") == block
    assert not tavo_util.compare_configuration(block, back.after)
    assert tavo_device.store_neuron_id("0501A2B3C4D5", dry_run=True).neuron_id == "0501A2B3C4D5"
    assert tavo_util.configuration_fields(tavo_device.set_scb0(Scb0Role.I2C).after).scb0 == "I2C"
    assert tavo_util.configuration_fields(tavo_device.set_scb0("SPI", dry_run=True).after).scb0 == "SPI"
    for wrong in (lambda: tavo_device.set_scb0("spi"), lambda: tavo_device.reset("link"), lambda: tavo_device.set_mode("on")):
        with pytest.raises(ValueError, match="not a valid"):
            wrong()
    assert tavo_device.store_neuron_id("0501A2B3C4D5").written
    assert not tavo_device.store_neuron_id("0501A2B3C4D5").written
    bad = block[:8] + b"\0" + block[9:]
    with pytest.raises(tavo_util.ImageRefused, match="checksum.*vanish"):
        tavo_device.write_configuration(bad, dry_run=True)
    assert tavo_device.write_configuration(bad, dry_run=True, force=True).changes_anything
    with pytest.raises(tavo_util.BadArgument):
        tavo_device.set_serial_number("")
    with pytest.raises(ValueError, match="512"):
        tavo_device.write_configuration(b"short")
    with pytest.raises(ValueError, match="12 hexadecimal"):
        tavo_device.store_neuron_id("12")
    (tmp_path / "short.bin").write_bytes(b"short")
    with pytest.raises(tavo_util.ImageRefused, match="5 bytes"):
        tavo_util.load_configuration(tmp_path / "short.bin")


def test_backups_and_history(tavo_device, tavo_interface, image, tmp_path):
    assert not tavo_device.program(image).backup and not tavo_device.backups()  # it was blank
    with pytest.raises(tavo_util.FileFailed):
        tavo_device.find_backup()
    Image.from_bytes(b"other" * 60).write(tmp_path / "small.hex")
    done = tavo_device.program(Image.read(tmp_path / "small.hex", format="hex"), range=AddressRange(0, 99))
    kept, = tavo_device.backups()
    assert kept.kind is BackupKind.FLASH and kept.path == done.backup and not kept.is_damaged
    assert tavo_device.find_backup(which=kept.sha256[:8]) == kept and kept.bytes == 64 << 10
    with pytest.raises(tavo_util.FileFailed):
        tavo_device.find_backup(BackupKind.DOMAINS)
    tavo_device.erase(no_backup=True)
    restored = tavo_device.restore(kept, no_backup=True)
    assert restored.changed and restored.flash.state == restored.state and tavo_device.verify(image, rest_blank=True)
    assert not tavo_device.restore(kept).changed

    block = tavo_device.configuration()
    tavo_device.set_serial_number("00009999")
    back = tavo_device.restore(tavo_device.find_backup(BackupKind.CONFIGURATION))
    assert tavo_device.configuration() == block and "serial number" in {change.field for change in back.bytes}
    entries = tavo_util.history(tavo_interface.spec).entries
    assert [entry.action for entry in entries] == ["program", "program", "erase", "restore", "restore", "set-serial",
                                                   "restore"]
    assert entries[1].started.tzinfo and entries[1].image.endswith("small.hex") and entries[4].result == "unchanged"

    for nth in range(1, 100):
        tavo_interface.lose_program(nth)
    with pytest.raises(tavo_util.FlashIncomplete):
        tavo_device.program(Image.read(tmp_path / "small.hex", format="hex"), range=AddressRange(0, 99))
    cut_off = tavo_device.interrupted_run
    assert cut_off.flash is FlashState.INCOMPLETE and cut_off.image.endswith("small.hex") and cut_off.kept
    assert cut_off.options == "--format hex --range 0x000000-0x000063"


def test_overview_doctor_recover(tavo_device, tavo_interface, image):
    told = []
    found = tavo_device.doctor(on_check=told.append)
    assert found.checks == tuple(told)
    assert found and all(check.verdict is not Verdict.FAIL for check in found.checks) and not found.failed
    seen = tavo_device.overview(tavo_util.FlashLook.ALWAYS)
    assert seen.flash.size == 64 << 10 and seen.status and seen.neuron_restarted and seen.interrupted is None
    assert [part.name for part in seen.parts][:2] == ["USB", "bridge"] and not seen.why
    tavo_device.program(image)
    steps = tavo_device.recover(on_step=told.append).steps
    assert steps and tuple(told[-len(steps):]) == steps and tavo_device.interrupted_run is None
    tavo_interface.set_neuron(answer="silent")
    silent = tavo_device.overview(tavo_util.FlashLook.NEVER)
    assert silent.status is None and dict(silent.why)["status"]


def test_choosing(tavo_interface):
    found, = tavo_util.devices()
    assert found.spec == tavo_interface.spec and found.serial == "00001234" and found.is_accessible
    with tavo_util.open("serial:00001234") as device:
        assert device.description.serial == "00001234" and "00001234" in repr(device)
        with pytest.raises(tavo_util.DeviceBusy):
            tavo_util.open()
    assert "closed" in repr(device)
    device.close()
    for use in (device.status, lambda: device.description):
        with pytest.raises(ValueError, match="closed"):
            use()
    with pytest.raises(tavo_util.NoDevice) as caught:
        tavo_util.open("serial:1", wait=0)
    assert caught.value.problem == "no-device"
    with pytest.raises(tavo_util.BadArgument):
        tavo_util.devices("usb:")
    with tavo_util.open() as device:
        assert device.is_attached
        tavo_interface.unplug()
        assert tavo_util.devices() == () and not device.is_attached
        with pytest.raises(tavo_util.NoDevice, match="device not found: the interface is no longer attached"):
            device.blank_check()
        tavo_interface.plug()
        assert device.blank_check()  # at once, not at the second try
    assert len(tavo_util.devices(tavo_interface.spec)) == 1
