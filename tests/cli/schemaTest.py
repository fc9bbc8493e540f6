"""Every command's JSON, of a success and of failures, against docs/schema. The other tests check theirs there, too."""

import concurrent.futures
import unittest

from tool import ToolTest, checked, image, noise, schema

# What each command is run with, in the order in which one makes what the next one needs.
COMMANDS = {
    "list": "", "info": "--flash", "check": "image.hex --map", "program": "image.hex --backup before.hex",
    "convert": "image.hex copy.srec", "verify": "image.hex --map", "dump": "dump.bin --range 64K+4K",
    "erase": "--range 64K+4K", "blank-check": "--map", "doctor": "", "recover": "", "history": "",
    "config read": "block.bin --hex", "config write": "block.bin --serial 00004321", "config set-serial": "00001299",
    "config diff": "block.bin", "restore": "config", "scb0": "i2c", "status": "",
    "mode": "offline", "reset": "", "service-pin": "",
    "neuron-id read": "", "neuron-id store": "", "program-id": "", "domain read": "--show-keys",
    "domain write": "domains.json", "completion": "bash", "help": "", "version": "",
}
# What is known of the device after those that change something other than the flash.
BLOCK = "configuration block written; it takes effect after a replug"
STATES = {"config write": BLOCK, "config set-serial": BLOCK, "scb0": BLOCK, "restore": BLOCK, "mode": "node set to offline",
          "reset": "the Neuron was restarted", "service-pin": "the service pin was pressed",
          "neuron-id store": "the Neuron ID is in the user flash", "domain write": "domain table written"}
WITHOUT_DEVICE = {"convert", "history", "completion", "help", "version"}


class Schema(ToolTest):
    sim_options = "pace=fast,size=128K"

    def setUp(self):
        super().setUp()
        self.state = {"XDG_STATE_HOME": self.path("state"), "HOME": self.folder}
        self.write("image.hex", image((0, noise(3000)), (0x10100, noise(300, 2))))
        self.write("domains.json", ['{"index": 0, "domain_id": "2A", "subnet": 3, "node": 7}'])
        text = self.run_tool("--help", device=False).out
        self.names = [line.split("  ")[1] for line in text.split("Commands:\n")[1].split("\n\n")[0].splitlines()]

    def run_command(self, name, *options, board="", sim=()):
        device = [] if name in WITHOUT_DEVICE else ["-d", ",".join([f"sim:board{board}", self.sim_options, *sim])]
        return self.run_tool("--json", "-y", *device, *options, *name.split(), *COMMANDS[name].split(), device=False,
                             env=self.state)

    def run_all(self, *options, sim=()):
        """The exit code of each command, each on an interface of its own: most of the time is waiting."""
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            ends = [pool.submit(self.run_command, name, *options, board=i, sim=sim)
                    for i, name in enumerate(self.names)]
        return {name: end.result().json["exit_status"] for name, end in zip(self.names, ends)}

    def test_every_command_has_its_result_in_the_schema(self):
        known = schema("tavo-util").schema["$defs"]["one"]["properties"]["command"]["enum"]
        self.assertEqual(set(self.names) - set(known), set(), "commands that docs/schema/tavo-util.json does not have")
        self.assertEqual(set(self.names) - set(COMMANDS), set(), "commands that this test does not run")

    def test_every_success_is_as_the_schema_says(self):
        for name in sorted(self.names, key=list(COMMANDS).index):
            with self.subTest(name):
                done = self.run_command(name)
                self.assertIn(done.json["exit_status"], (0, 9), done.out)
                self.assertEqual(done.json["command"], name)
                self.assertEqual(done.json["state"], STATES.get(name, done.json["state"]))
                if name == "domain read":
                    checked("domains", done.out)

    def test_every_dry_run_is_as_the_schema_says(self):
        self.run_command("config read")
        ends = self.run_all("--dry-run")
        # Nothing is kept yet that could be put back.
        self.assertEqual({name: code for name, code in ends.items() if code != 0}, {"restore": 8})

    def test_every_failure_is_as_the_schema_says(self):
        denied = self.run_all(sim=["denied"])
        others = {"list", "doctor", *WITHOUT_DEVICE}
        self.assertEqual({name for name, code in denied.items() if code != 5}, others & set(self.names))
        # A few transfers are good: what was found so far is told.
        faults = ["fault=CySpiReadWrite@9+:11", "fault=libusb_control_transfer@2+:-7", "fault=ldv_write@1+:4"]
        broken = self.run_all(sim=faults)
        self.assertGreater(sum(code in (10, 11, 12) for code in broken.values()), len(self.names) / 2, broken)


if __name__ == "__main__":
    unittest.main()
