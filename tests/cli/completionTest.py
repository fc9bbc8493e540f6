"""The completion scripts, loaded by the shells themselves and asked as a user would ask them."""

import os
import re
import shutil
import subprocess
import unittest

from tool import TOOL, ToolTest

BUILD = os.environ.get("TAVO_BUILD", "")
FILES = "<files>"

# $1: the script; the words of the command line follow. readline completes file names itself when it is asked to.
BASH = r"""
. "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
compopt() { [[ $* != *default* ]] || echo '<files>'; }
_tavo_util
printf '%s\n' "${COMPREPLY[@]}"
"""

# Completion runs in the line editor only: a shell below a terminal, whose compadd writes down what it is offered.
ZSH = r"""
PROMPT=
fpath=($FOLDER $fpath)
autoload -Uz compinit && compinit -u -D
_files() { print -r -- '<files>' >>$FOLDER/offered }
compadd() {
  local -a found
  if [[ "$*" != *-(O|A|D)* ]]; then
    builtin compadd -O found "$@"
    print -rl -- $found >>$FOLDER/offered
  fi
  builtin compadd "$@"
}
finish() { zle complete-word; print -r -- done >>$FOLDER/offered; exit }
zle -N finish
bindkey '^I' finish
zle-line-init() { print -n ready }
zle -N zle-line-init
"""


def unless(shell):
    return unittest.skipUnless(shutil.which(shell), "needs " + shell)


class ShellTest(ToolTest):
    def script(self, shell, name):
        return self.write(name, self.run_tool("completion", shell, device=False).out.encode())

    def run_shell(self, *command, **more):
        done = subprocess.run(command, capture_output=True, text=True, cwd=self.folder, timeout=60, check=False,
                              env=self.environment({"HOME": self.folder, "FOLDER": self.folder, "TERM": "xterm"}), **more)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.split("\n")


class Completion(ShellTest):
    def offered_by_bash(self, line):
        words = [word for word in re.split(r" +|([:=])", "tavo-util " + line) if word is not None]
        words = [word for i, word in enumerate(words) if word or i == len(words) - 1]
        if len(words) > 1 and words[-1] == "" and words[-2] in (":", "="):
            words.pop()
        return self.run_shell("bash", "--norc", "-c", BASH, "bash", self.path("script"), *words)

    def offered_by_fish(self, line):
        found = self.run_shell("fish", "--no-config", "-c", "source script; complete -C $argv", "tavo-util " + line)
        return [FILES if row.startswith("image.hex") else row.split("\t")[0] for row in found]

    def offered_by_zsh(self, line):
        self.write("offered", b"")
        self.write(".zshrc", ZSH.encode())
        env = {"HOME": self.folder, "ZDOTDIR": self.folder, "FOLDER": self.folder}
        self.assertExit(self.on_terminal(["zsh", "-d", "-i"], "tavo-util " + line + "\t", b"ready", env), 0)
        return self.read("offered").decode().split("\n")

    def assertOffers(self, offered):
        """The same questions for every shell."""
        self.write("image.hex", b"")
        for line, wanted, unwanted in (
                ("", {"list", "program", "config", "help"}, {"read", "--json", FILES}),
                ("pro", {"program", "program-id"}, {"list"}),
                ("-d 00001234 pro", {"program"}, {"list"}),
                ("-d ", {"serial:", "sim:"}, {"list", "program", FILES}),
                ("--device ", {"usb:", "neuron:"}, {"list"}),
                ("--log ", {FILES}, {"list"}),
                ("--progress ", {"auto", "bar", "json"}, {"list", FILES}),
                ("--usb-id 04B4:0004 pro", {"program"}, set()),
                ("--progress=plain dum", {"dump"}, set()),
                ("config ", {"read", "write", "set-serial", "diff"}, {"list", FILES}),
                ("config read --h", {"--help", "--hex"}, {"--backup"}),
                ("program ", {FILES}, {"list"}),
                ("program --", {"--backup", "--if-different", "--json", "--wait"}, {"--rest-blank"}),
                ("program image.hex --backup ", {FILES}, {"list"}),
                ("--js", {"--json"}, {"--color"}),
                ("convert a.hex ", {FILES}, {"list"}),
                ("check --format ", {"srec", "bin"}, {"list", FILES}),
                ("erase --layout ", {FILES}, {"list"}),
                ("mode ", {"unconfigured", "service"}, {"list", FILES}),
                ("scb0 ", {"spi", "i2c"}, {FILES}),
                ("restore ", {"flash", "config", "domain"}, {"list", FILES}),
                ("erase ", set(), {"list", "spi", FILES}),
                ("help con", {"config", "convert"}, {"list"})):
            with self.subTest(line=line):
                found = set(offered(line))
                self.assertEqual((wanted - found, unwanted & found), (set(), set()), found)

    @unless("bash")
    def test_bash(self):
        self.script("bash", "script")
        self.assertOffers(self.offered_by_bash)
        # What stands before a ':' or '=' stays; readline replaces the rest.
        self.assertIn("json", self.offered_by_bash("--progress=js"))
        os.mkdir(self.board)
        self.assertIn("board", self.offered_by_bash("-d sim:bo"))

    @unless("fish")
    def test_fish(self):
        self.script("fish", "script")
        self.assertOffers(self.offered_by_fish)

    @unless("zsh")
    def test_zsh(self):
        self.script("zsh", "_tavo-util")
        self.assertOffers(self.offered_by_zsh)


@unittest.skipUnless(BUILD, "needs the build folder")
class Installed(ShellTest):
    def setUp(self):
        super().setUp()
        self.prefix = self.path("usr")
        subprocess.run(["cmake", "--install", BUILD, "--prefix", self.prefix], stdout=subprocess.DEVNULL, check=True)

    def share(self, name):
        return os.path.join(self.prefix, "share", name)

    @unittest.skipUnless(os.path.exists("/usr/share/bash-completion/bash_completion"), "needs bash-completion")
    def test_bash_finds_it(self):
        loaded = self.run_shell("bash", "--norc", "-c", "XDG_DATA_DIRS=$1; . /usr/share/bash-completion/bash_completion; "
                                "_completion_loader tavo-util; complete -p tavo-util", "bash", self.share(""))
        self.assertIn("complete -F _tavo_util tavo-util", loaded)

    @unless("fish")
    def test_fish_finds_it(self):
        # fish loads completions of commands that it finds.
        path = os.path.join(self.prefix, "bin") + ":" + os.environ["PATH"]
        found = self.run_shell("env", "PATH=" + path, "XDG_DATA_DIRS=" + self.share("") + ":/usr/share", "fish", "-c",
                               "complete -C 'tavo-util recov'")
        self.assertEqual(found[0].split("\t")[0], "recover")

    @unless("zsh")
    def test_zsh_finds_it(self):
        found = self.run_shell("zsh", "-d", "-f", "-c", "fpath=($1 $fpath); autoload -Uz compinit; compinit -u -D; "
                               "print $_comps[tavo-util]", "zsh", self.share("zsh/site-functions"))
        self.assertEqual(found[0], "_tavo-util")

    def test_the_manual_names_files_that_are_there(self):
        with open(self.share("man/man1/tavo-util.1"), encoding="utf-8") as file:
            named = re.findall(r"^\.I (/\S+)$", file.read(), re.MULTILINE)
        self.assertEqual(len(named), 4)
        for path in named:
            self.assertTrue(os.path.isfile(path), path)


if __name__ == "__main__":
    unittest.main()
