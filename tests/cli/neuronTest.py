"""The commands that talk to the Neuron."""

import json
import os
import signal
import unittest

from tool import ToolTest, checked

UNUSED = {"index": 1, "in_use": False, "domain_id": "", "subnet": 255, "node": 127, "clone": False,
          "key": "000000000000"}


class NeuronToolTest(ToolTest):
    def set_neuron(self, **values):
        """Changes keys of the board's text file: state="06" sets neuron.state."""
        self.run_tool("list")
        lines = dict(line.split("=", 1) for line in self.read("board/board.txt").decode().splitlines() if "=" in line)
        lines.update({"neuron." + key.replace("_", "-"): value for key, value in values.items()})
        changed = self.write("board.txt", [f"{key}={value}" for key, value in lines.items()])
        os.replace(changed, self.path("board/board.txt"))  # at once: a run may be reading it

    def result(self, *args, sim=()):
        told = self.run_tool("--json", *args, sim=sim).json
        self.assertEqual(told["exit_status"], 0, told)
        return told["result"]


class State(NeuronToolTest):
    def test_status_names_what_it_shows_beside_the_raw_value(self):
        names = (("02", "unconfigured", "02", "external", "00", "no error"),
                 ("03", "applicationless", "0C", "watchdog", "81", "bad event"),
                 ("04", "configured", "14", "software", "94", "division by zero"),
                 ("0C", "soft offline", "81", "power-up", "A4", "router firmware version mismatch"),
                 ("8C", "bypass offline", "08", "unknown", "07", "error of the application"),
                 ("55", "unknown", "00", "cleared", "A5", "unknown"))
        for state, state_name, cause, cause_name, error, error_name in names:
            with self.subTest(state=state):
                self.set_neuron(state=state, reset_cause=cause, error_log=error)
                told = self.result("status")
                self.assertEqual(told["node_state"], {"name": state_name, "raw": int(state, 16)})
                self.assertEqual(told["reset_cause"], {"name": cause_name, "raw": int(cause, 16)})
                self.assertEqual(told["error_log"], {"name": error_name, "raw": int(error, 16)})
                self.assertIn(f"{cause_name} (0x{cause})\n", self.run_tool("status").out)

    def test_counters_are_whole_numbers_of_both_bytes(self):
        self.set_neuron(counters="0001" "0100" "FFFF" "0000" "1234")
        self.assertEqual(list(self.result("status")["counters"].values()), [1, 256, 65535, 0, 0x1234])

    def test_a_mode_is_still_set_in_the_next_run(self):
        for mode, name, raw in (("unconfigured", "unconfigured", 2), ("offline", "hard offline", 6),
                                ("configured", "configured", 4)):
            with self.subTest(mode):
                before = self.result("status")["node_state"]
                told = self.result("mode", mode)
                self.assertEqual(told, {"before": before, "after": {"name": name, "raw": raw}})
                self.assertEqual(self.result("status")["node_state"], told["after"])
        self.assertExit(self.run_tool("--dry-run", "mode", "offline"), 0)
        self.assertEqual(self.result("status")["node_state"]["raw"], 4)

    def test_service_mode_counts_down_and_leaves_the_node_unconfigured(self):
        shown = self.run_on_terminal("mode", "service")
        self.assertExit(shown, 0)
        self.assertRegex(shown.out, r"service mode 10\.\d s left")
        self.assertIn("configured (0x04) -> unconfigured (0x02)", shown.out)

    def test_resets_are_told_apart_by_the_neuron(self):
        for args, cause in ((("reset",), "external"), (("reset", "--soft"), "software")):
            with self.subTest(args):
                self.assertGreater(self.result(*args)["seconds"], 0)
                self.assertEqual(self.result("status")["reset_cause"]["name"], cause)

    def test_a_long_wait_says_what_it_waits_for(self):
        self.set_neuron(delay_ms="300")
        self.assertIn("waits for the network interface's notice, at most 66 s", self.run_tool("reset", "--soft").err)

    def test_identity(self):
        self.assertEqual(self.run_tool("neuron-id", "read").out, "050102030405\n")
        self.set_neuron(id="0A0B0C0D0E0F", program_id="4142432000FF7E7F")
        self.assertEqual(self.result("neuron-id", "read"), {"neuron_id": "0A0B0C0D0E0F"})
        self.assertEqual(self.run_tool("program-id").out, "41 42 43 20 00 FF 7E 7F  ABC ..~.\n")
        self.assertEqual(self.result("program-id"), {"program_id": "4142432000FF7E7F", "text": "ABC ..~."})

    def test_no_answer_is_exit_12(self):
        self.set_neuron(answer="silent")
        for args in (["status"], ["neuron-id", "read"], ["program-id"], ["domain", "read"]):
            with self.subTest(args=args):
                result = self.run_tool(*args)
                self.assertExit(result, 12)
                self.assertErrorForm(result, "the Neuron was only asked, nothing in it changed", "[TAVO_TRANSACTION_FAILED 7]")
        self.set_neuron(answer="negative")
        result = self.run_tool("mode", "offline")
        self.assertExit(result, 12)
        self.assertErrorForm(result, "the node state may have changed: tavo-util -d DEVICE status shows it")
        self.set_neuron(answer="normal")
        self.assertEqual(self.result("status")["node_state"]["raw"], 4)

    def test_a_pin_that_cannot_be_set_fails_with_the_bridges_code(self):
        for args in (["reset"], ["service-pin"], ["mode", "service"]):
            with self.subTest(args):
                result = self.run_tool(*args, sim=["fault=CySetGpioValue@1:6"])
                self.assertExit(result, 10)
                self.assertIn("[TAVO_REQUEST_FAILED 13]", result.err)
        self.assertExit(self.run_tool("service-pin"), 0)


class Watch(NeuronToolTest):
    def test_json_has_an_object_a_look_and_a_last_one(self):
        self.set_neuron(counters="FFFE" + "0000" * 4, growth="0003" + "0000" * 3 + "0001")
        result = self.run_tool("--json", "status", "--watch=0.2", "--count", "3")
        self.assertExit(result, 0)
        *looks, last = result.out.splitlines()
        looks, last = [checked("status-look", line) for line in looks], checked("tavo-util", last)
        self.assertEqual([look["look"] for look in looks], [1, 2, 3])
        self.assertEqual([look["counters"]["transmit_errors"] for look in looks], [0xFFFE, 1, 4])
        self.assertEqual([look["change"]["transmit_errors"] for look in looks], [0, 3, 3])
        self.assertEqual([look["since_start"]["missed_messages"] for look in looks], [0, 1, 2])
        self.assertEqual((last["exit_status"], last["result"]["looks"]), (0, 3))
        self.assertEqual(last["result"]["since_start"]["transmit_errors"], 6)

    def test_a_neuron_that_falls_silent_is_told_and_ctrl_c_ends_well(self):
        self.set_neuron(growth="0001" * 5)
        process = self.start_tool("status", "--watch=0.3")
        with process:
            seen = self.read_until(process, "2 looks")
            self.set_neuron(answer="silent")
            seen += self.read_until(process, "no answer (transaction failed)")
            self.set_neuron(answer="normal")
            seen += self.read_until(process, "* lost messages")
            process.send_signal(signal.SIGINT)
            out, err = process.communicate(timeout=60)
        self.assertEqual((process.returncode, err), (0, ""))
        self.assertRegex(seen, r"\* transmit errors +\+1 +\+1 +\d+  \.8\n")
        self.assertRegex(out, r"\d+ looks in \d\.\d s, \d without an answer\ntransmit errors \+\d+: ")
        self.assertExit(self.run_tool("status"), 0)

    def read_until(self, process, *texts):
        seen = ""
        for text in texts:
            while text not in seen.rpartition("\n\n")[2]:
                line = process.stdout.readline()
                self.assertTrue(line, seen)
                seen += line
        return seen

    def test_a_terminal_shows_it_in_its_place_as_wide_as_it_is(self):
        self.set_neuron(growth="0001" * 5)
        for columns, locale, wanted, unwanted in ((80, "C.UTF-8", "  .██", ".8"), (80, "C", "  .88", "█"),
                                                  (44, "C.UTF-8", "+2", "history")):
            shown = self.run_on_terminal("status", "--watch=0.2", "--count", "3", columns=columns,
                                         env={"LC_ALL": locale}).out
            last = shown.split("\x1b[K")[-1].split("missed messages")[0]
            self.assertIn(wanted, last)
            self.assertNotIn(unwanted, last)
            rows = shown.split("\r\x1b[K")[0].split("\r\n")
            self.assertEqual(len(rows), 8)
            self.assertLess(max(map(len, rows)), columns)

    def test_two_devices_are_told_apart(self):
        result = self.run_tool("-d", f"sim:{self.path('two')},pace=fast,serial=2", "status", "--count", "1")
        self.assertExit(result, 0)
        for line in ("00001234 at sim:", "2 at sim:", "2: no counter has grown"):
            self.assertIn("\n" + line, "\n" + result.out)

    def test_what_no_one_reads_ends_it(self):
        with self.start_tool("status", "--watch=0.2") as process:
            process.stdout.readline()
            process.stdout.close()
            self.assertEqual(process.wait(timeout=60), 8)


class Domains(NeuronToolTest):
    ENTRY = {"index": 0, "in_use": True, "domain_id": "0102AF", "subnet": 7, "node": 127, "clone": True, "flags": 5,
             "key": "0011223344FF"}

    def write_json(self, content, name="domains.json"):
        return self.write(name, [json.dumps(content)])

    def table(self):
        return self.result("domain", "read", "--show-keys")["domains"]

    def test_what_is_read_can_be_written_into_another_neuron(self):
        wanted = [self.ENTRY, {**UNUSED, "key": "FFFFFFFFFFFF"}]
        self.assertExit(self.run_tool("-y", "domain", "write", self.write_json(wanted)), 0)
        self.assertEqual(self.table(), wanted)
        whole = self.write("whole.json", [self.run_tool("--json", "domain", "read", "--show-keys").out])
        self.board = self.path("other")
        self.assertNotEqual(self.table(), wanted)
        self.assertExit(self.run_tool("-y", "domain", "write", whole), 0)
        self.assertEqual(self.table(), wanted)

    def test_keys_are_shown_on_request_only_and_a_hidden_key_stays_as_it_is(self):
        self.assertExit(self.run_tool("-y", "domain", "write", self.write_json(self.ENTRY)), 0)
        self.assertNotIn("0011223344FF", self.run_tool("domain", "read").out + self.run_tool("--json", "domain", "read").out)
        self.assertIn("0  domain 0102AF        subnet   7  node 127  key 0011223344FF\n",
                      self.run_tool("domain", "read", "--show-keys").out)
        hidden = self.result("domain", "read")["domains"]
        self.assertEqual([entry["key"] for entry in hidden], [None, None])
        hidden[0]["subnet"] = 8
        written = self.run_tool("-y", "domain", "write", self.write_json({"domains": hidden}))
        self.assertExit(written, 0)
        self.assertNotIn("0011223344FF", written.out)
        self.assertEqual(self.table(), [{**self.ENTRY, "subnet": 8}, UNUSED])

    def test_one_entry_can_be_written_alone(self):
        before = self.table()
        both = self.write_json([self.ENTRY, {**UNUSED, "subnet": 1}])
        hidden = self.result("domain", "read")["domains"]
        told = self.result("-y", "domain", "write", both, "--index", "1")
        self.assertTrue(os.path.isfile(told.pop("backup")))
        self.assertEqual(told, {"before": hidden, "after": [hidden[0], {**UNUSED, "subnet": 1, "key": None}]})
        self.assertEqual(self.table(), [before[0], {**UNUSED, "subnet": 1}])
        self.assertExit(self.run_tool("-y", "domain", "write", self.write_json(self.ENTRY), "--index", "1"), 0)
        self.assertEqual(self.table()[1], {**self.ENTRY, "index": 1})

    def test_values_out_of_range_are_refused_before_anything_is_touched(self):
        entry = self.ENTRY
        bad = [{**entry, **change} for change in (
            {"domain_id": "0102"}, {"domain_id": "01020304050607"}, {"domain_id": "0G"}, {"domain_id": "012"},
            {"domain_id": None}, {"domain_id": 1}, {"subnet": 256}, {"subnet": -1}, {"subnet": "7"}, {"subnet": 1.5},
            {"node": 0}, {"node": 128}, {"node": 1 << 64}, {"index": 2}, {"key": "00"}, {"in_use": 1}, {"flags": 16},
            {"nodes": 3})]
        bad += [[entry, entry], [], "text", {"domains": {}}, {"result": {}}]
        for content in [json.dumps(each) for each in bad] + ["", "{", "[" * 5000]:
            with self.subTest(content[:80]):
                result = self.run_tool("-y", "domain", "write", self.write("bad.json", [content]))
                self.assertExit(result, 7)
                self.assertErrorForm(result, "device not touched")
        self.assertExit(self.run_tool("-y", "domain", "write", self.path("missing.json")), 8)

    def test_the_output_of_a_failed_read_is_told_as_such(self):
        self.set_neuron(answer="silent")
        told = self.run_tool("--json", "domain", "read")
        self.assertExit(told, 12)
        result = self.run_tool("-y", "domain", "write", self.write("failed.json", [told.out]))
        self.assertExit(result, 7)
        self.assertErrorForm(result, "device not touched", "failed.json holds what a tavo-util domain read has told")
        self.assertIn("domain read --show-keys > ", result.err)

    def test_faults_of_the_file_tell_their_place(self):
        text = json.dumps(self.ENTRY, indent=1)  # "node" is in line 6
        for content, told in ((text.replace('"node": 127', '"node": 1e999'), "line 6, character 14"),
                              (text.replace('"node": 127', '"node": 18446744073709551615'), "node 18446744073709551615"),
                              (text.replace('"node": 127', '"node": 127,,'), "line 6, character 14"),
                              (text.replace("0102AF", "01\xff2AF"), "line 4")):
            with self.subTest(told):
                path = self.write("bad.json", content.encode("latin-1"))
                result = self.run_tool("-y", "domain", "write", path)
                self.assertExit(result, 7)
                self.assertErrorForm(result, "device not touched", told)

    def test_a_file_may_have_64_kib_and_not_a_byte_more(self):
        text = json.dumps(self.ENTRY)
        for size, code in ((65536, 0), (65537, 7)):
            path = self.write("long.json", text.ljust(size).encode())
            self.assertExit(self.run_tool("-y", "domain", "write", path), code)

    def test_it_asks_first(self):
        before = self.table()
        path = self.write_json(self.ENTRY)
        self.assertExit(self.run_tool("domain", "write", path), 13)
        self.assertExit(self.run_on_terminal("domain", "write", path, typed="n\n"), 13)
        shown = self.run_tool("--dry-run", "domain", "write", path)
        self.assertRegex(shown.out, r"before  0  domain 4A .* key hidden\nafter   0  domain 0102AF .* key hidden, key changed\n")
        self.assertEqual(self.table(), before)
        self.assertExit(self.run_on_terminal("domain", "write", path, typed="y\n"), 0)
        self.assertEqual(self.table(), [self.ENTRY, before[1]])

    def test_a_failed_write_is_read_back(self):
        path = self.write_json([self.ENTRY, {**UNUSED, "subnet": 1}])
        other = self.write_json({**self.ENTRY, "subnet": 9}, "other.json")
        # writes on the channel: two to read the table first, then one for each entry
        for fault, state, changed in (("ldv_write@3:4", "entry 0 unchanged, entry 1 unchanged", []),
                                      ("ldv_write@4:4", "entry 0 written, entry 1 unchanged", [0])):
            with self.subTest(fault):
                result = self.run_tool("-y", "domain", "write", path, sim=["fault=" + fault])
                self.assertExit(result, 12)
                self.assertErrorForm(result, "domain table read back: " + state)
                told = self.run_tool("--json", "-y", "domain", "write", other, sim=["fault=" + fault]).json
                self.assertEqual((told["exit_status"], told["result"]["changed"]), (12, changed))
                self.assertNotIn("after", told["result"])
        result = self.run_tool("-y", "domain", "write", path, sim=["fault=ldv_write@3+:4"])
        self.assertErrorForm(result, "the domain table may have changed: it cannot be read back")


if __name__ == "__main__":
    unittest.main()
