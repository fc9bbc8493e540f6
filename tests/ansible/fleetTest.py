"""The Ansible collection against a fleet of simulated interfaces, one for each host of the inventory."""

import csv
import json
import os
import re
import subprocess
import sys
import tempfile
import threading
import time
import unittest

SOURCES = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(SOURCES, "tests/cli"))

from tool import TOOL, image, noise  # noqa: E402  (its folder has to be known first)

HOSTS = [f"unit{number:02}" for number in range(24)]
DATA = noise(40000)
CHIP = DATA + b"\xFF" * (65536 - len(DATA))
BLANK = b"\xFF" * 65536
WAYS = ("tool", "package") if "PYTHONPATH" in os.environ else ("tool",)  # PYTHONPATH names what a build with Python made
MODULES = ("tavo_image", "tavo_configuration", "tavo_domain", "tavo_info", "tavo_report")


class Fleet(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="tavo-fleet-test-")
        cls.addClassCleanup(folder.cleanup)
        cls.home = folder.name
        cls.environment = {
            **{name: value for name, value in os.environ.items() if not name.startswith(("ANSIBLE_", "TAVO_"))},
            "HOME": cls.home, "LC_ALL": "C.UTF-8", "ANSIBLE_COLLECTIONS_PATH": os.path.join(cls.home, "collections"),
            "ANSIBLE_PIPELINING": "1", "ANSIBLE_FORKS": "24", "ANSIBLE_NOCOLOR": "1", "ANSIBLE_LOCALHOST_WARNING": "0"}
        cls.run_program("ansible-galaxy", "collection", "install", "--offline", os.path.join(SOURCES, "ansible"))

    @classmethod
    def run_program(cls, *command, code=0):
        done = subprocess.run(command, env=cls.environment, cwd=cls.home, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=240)
        if done.returncode != code:
            raise AssertionError(f"{command} ended with {done.returncode}, not {code}\n{done.stdout}{done.stderr}")
        return done.stdout

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="boards-", dir=self.home)
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.image = self.path("firmware.hex")
        with open(self.image, "w") as file:
            file.write("\n".join(image((0, DATA))) + "\n")

    def path(self, name):
        return os.path.join(self.folder, name)

    def flash(self, host):
        with open(self.path(host + "/flash.bin"), "rb") as file:
            return file.read()

    def play(self, playbook, *options, hosts=HOSTS, faults=None, own=None, away=(), code=0, **variables):
        """Runs a playbook on the hosts, whose interfaces may have faults, and returns what it printed. A host that is
        away has a closed port."""
        of_host = {host: {"tavo_device": f"sim:{self.path(host)},size=64K,serial=U{host[4:]},"
                          + (faults or {}).get(host, "pace=fast"), "tavo_via": WAYS[int(host[4:]) * len(WAYS) // len(HOSTS)]}
                   for host in hosts}
        for host, changes in (own or {}).items():
            of_host[host].update(changes)
        for host in away:
            of_host[host].update(ansible_connection="ssh", ansible_host="127.0.0.1", ansible_port=1)
        common = {"ansible_connection": "local", "ansible_python_interpreter": os.environ.get("TAVO_PYTHON", sys.executable), "tavo_tool": TOOL,
                  "tavo_image_file": self.image, "tavo_report_folder": self.path("report"), **variables}
        with open(self.path("inventory.json"), "w") as file:
            json.dump({"all": {"vars": common, "hosts": of_host}}, file)
        return self.run_program("ansible-playbook", "-i", self.path("inventory.json"), playbook, *options,
                                "-e", json.dumps(variables), code=code)

    def report(self):
        with open(self.path("report/report.json")) as file:
            found = json.load(file)
        self.assertEqual(len(found["interfaces"]), sum(found["counts"].values()))
        return {name: number for name, number in found["counts"].items() if number}, {
            each["host"]: each for each in found["interfaces"]}

    def unplug_when_written(self, host):
        """Pulls the cable of an interface as soon as there is something of the image on its chip."""
        def watch():
            deadline = time.monotonic() + 120
            while time.monotonic() < deadline:
                if os.path.exists(self.path(host + "/flash.bin")) and self.flash(host) not in (BLANK, b""):
                    return self.plug(host, "--unplug")
                time.sleep(0.01)
        watching = threading.Thread(target=watch)
        watching.start()
        self.addCleanup(watching.join)

    def plug(self, host, way="--plug"):
        self.run_program(os.path.join(os.path.dirname(TOOL), "tavo-sim"), way, self.path(host))

    def test_a_fleet_is_updated_repaired_and_then_left_alone(self):
        out = self.play("tavo.util.update", "--check", "--diff", tavo_batches=[24])
        counts, hosts = self.report()
        self.assertEqual(counts, {"would-change": 24})
        self.assertIn("+0x000000-0x009C3F", out)
        self.assertTrue(all(self.flash(host) == BLANK for host in HOSTS), "check mode wrote")

        self.unplug_when_written("unit20")
        faults = {"unit05": "pace=fast,denied", "unit13": "pace=fast,fault=CySpiReadWrite@90+:11", "unit20": "pace=real"}
        out = self.play("tavo.util.update", faults=faults, code=2, tavo_batches=[8, 16], tavo_max_fail_percentage=50)
        counts, hosts = self.report()
        self.assertEqual(counts, {"failed": 3, "updated": 21})
        for host in HOSTS:
            self.assertEqual(self.flash(host) == CHIP, host not in faults, host)
            self.assertEqual(bool(hosts[host]["image_sha256"]), host not in faults, host)
        self.assertEqual((hosts["unit05"]["exit_status"], hosts["unit05"]["state"]), (5, "device not touched"))
        self.assertIn("plugdev", hosts["unit05"]["hint"])
        self.assertRegex(out, r'(?m)^fatal: \[unit05\].*"msg": "cannot open .*state: device not touched.* Hint: log in')
        for host in ("unit13", "unit20"):
            self.assertEqual(hosts[host]["exit_status"], 11, hosts[host])
            self.assertIn("flash incomplete", hosts[host]["state"])
            self.assertIn("run this task again", hosts[host]["hint"])
            self.assertRegex(out, rf'(?m)^fatal: \[{host}\].*"changed": true.*"hint": "\S.*"msg": "cannot .* Hint: \S')
        with open(self.path("report/report.html")) as file:
            self.assertRegex(file.read(), r'<tbody>\n<tr class="failed"><td>unit05</td>.*plugdev')
        with open(self.path("report/report.csv")) as file:
            self.assertRegex(file.read(), r"(?m)^unit20,U20,sim:\S*/unit20,failed,,")

        self.plug("unit20")
        written = {host: os.stat(self.path(host + "/flash.bin")).st_mtime_ns for host in HOSTS}
        self.play("tavo.util.update", tavo_batches=[24])
        counts, hosts = self.report()
        self.assertEqual(counts, {"current": 21, "updated": 3})
        for host in HOSTS:
            self.assertEqual(hosts[host]["outcome"], "updated" if host in faults else "current")
            self.assertEqual(self.flash(host), CHIP)
            if host not in faults:
                self.assertEqual(os.stat(self.path(host + "/flash.bin")).st_mtime_ns, written[host], host)
        self.assertEqual(len({each["image_sha256"] for each in hosts.values()}), 1)

        with open(self.path("unit01/flash.bin"), "r+b") as file:
            file.seek(60000)  # beyond the image, where FF belongs
            file.write(b"\x42")
        identity = hosts["unit00"]["image_sha256"]
        with open(self.path("firmware.bin"), "wb") as file:
            file.write(DATA)  # the same image in another file
        self.play("tavo.util.update", "--check", hosts=HOSTS[:3], tavo_batches=[3], tavo_image_sha256=identity,
                  tavo_image_file=self.path("firmware.bin"))
        counts, hosts = self.report()
        self.assertEqual((counts, hosts["unit01"]["outcome"]), ({"current": 2, "would-change": 1}, "would-change"))
        self.assertEqual([hosts[host]["image_sha256"] for host in HOSTS[:3]], [identity, None, identity])

    def test_too_many_failures_end_the_run_before_the_next_batch(self):
        faults = {"unit01": "pace=fast,dead-flash=0"}
        self.play("tavo.util.update", hosts=HOSTS[:6], faults=faults, away=["unit02"], code=2, tavo_batches=[3],
                  tavo_max_fail_percentage=50)
        counts, hosts = self.report()
        self.assertEqual(counts, {"failed": 1, "unreachable": 1, "updated": 1, "waiting": 3})
        self.assertEqual(hosts["unit01"]["exit_status"], 10)
        self.assertIn("run the play again", hosts["unit02"]["hint"])
        self.assertFalse(os.path.exists(self.path("unit03")), "an interface of the next batch was touched")

        faults = {"unit00": "pace=fast,dead-flash=0"}
        self.play("tavo.util.update", hosts=HOSTS[:6], faults=faults, code=2, tavo_batches=[1])
        self.assertEqual(self.report()[0], {"failed": 1, "waiting": 5}, "what an earlier run found is no news")

    def test_the_guide_shows_what_happens(self):
        with open(os.path.join(SOURCES, "docs/fleet.md")) as file:
            guide = file.read().replace("/tmp/", self.folder + "/")
        with open(self.path("desk.yml"), "w") as file:
            file.write(next(block for block in re.findall(r"```yaml\n(.*?)```", guide, re.S) if "sim:" in block))
        command = re.search(r"^    (ansible-playbook .*desk\.yml.*)$", guide, re.M)[1]
        self.run_program("bash", "-c", f"cd {self.folder} && PATH={os.path.dirname(TOOL)}:$PATH {command}", code=2)
        with open(self.path("tavo-report/report.csv")) as file:
            found = {each["host"]: each for each in csv.DictReader(file)}
        names, _line, *rows = [[cell.strip() for cell in line.split("|")[1:-1]]
                               for line in re.search(r"^\| host \|.*?\n\n", guide, re.M | re.S)[0].splitlines()[:-1]]
        self.assertEqual({row[0] for row in rows}, set(found))
        for row in rows:
            self.assertEqual(row, [found[row[0]][name] for name in names])

    def test_every_other_module_predicts_does_and_then_does_nothing(self):
        """By each way; both return the same."""
        hosts = HOSTS[:len(WAYS)]
        own = {host: {"tavo_via": way, "tavo_device": f"sim:{self.path(host)},size=64K,serial=U00,pace=fast"}
               for host, way in zip(hosts, WAYS)}
        self.play(os.path.join(SOURCES, "tests/ansible/modules.yml"), hosts=hosts, own=own, folder=self.folder, image=self.image,
                  tavo_sim=os.path.join(os.path.dirname(TOOL), "tavo-sim"))
        self.maxDiff = None
        for name, by_tool in self.returned(hosts[0]).items():
            for host in hosts[1:]:
                self.assertEqual(self.returned(host)[name], by_tool, name)

    def returned(self, host):
        """What the tasks of modules.yml returned, but for what differs from run to run."""
        with open(self.path(host + "/results.json")) as file:
            text = re.sub(r'"seconds": [0-9.e-]+', '"seconds": 0', file.read().replace(host, "HOST"))
        tasks = json.loads(re.sub(r"-\d{8}-\d{6}-|-tmp-[\d.-]+|\d{4}-\d\d-\d\dT[\d:]+", "-TIME-", text))
        return {name: {field: value for field, value in task.items() if field != "via"} for name, task in tasks.items()}

    def test_documentation_and_argument_specs_agree(self):
        told = json.loads(self.run_program("ansible-doc", "--json", *("tavo.util." + name for name in MODULES)))
        for name in MODULES:
            found = told["tavo.util." + name]
            self.assertTrue(found["examples"] and found["return"], name)
            undescribed = [option for option, what in found["doc"]["options"].items() if not what["description"]]
            self.assertEqual(undescribed, [], name)
            self.assertTrue({"device", "tool", "wait"} <= set(found["doc"]["options"]) or name == "tavo_report", name)


if __name__ == "__main__":
    unittest.main()
