#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the tools, as built for a device, against each other.

usage: tools_test.py EMULATOR SDFCTL DEMO

Each is a program, or a script that runs one.
"""
import os
import subprocess
import sys
import tempfile
import unittest

EMULATOR, SDFCTL, DEMO = sys.argv[1:]
LIMIT = 100  # seconds after which something counts as not happening


class Tools(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.environment = {**os.environ, "LUM_BINDER_DIR": f"{directory.name}/binder"}

    def start(self, *command):
        return subprocess.Popen(command, text=True, env=self.environment, stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE)

    def run_sdfctl(self, *arguments, script=""):
        process = self.start(SDFCTL, *arguments)
        text, _ = process.communicate(script, timeout=LIMIT)
        return process.returncode, text.splitlines()

    def start_service(self):
        service = self.start(EMULATOR, "--until-eof")
        self.addCleanup(service.communicate)  # ends its input, and so the service
        self.assertRegex(service.stdout.readline(), "^ready: ")
        return service

    def test_doctor_looks_at_no_directory_of_sockets(self):
        status, lines = self.run_sdfctl("doctor")
        self.assertEqual(status, 11)
        self.assertEqual(lines[0], "failed  service:   nobody serves the name "
                                   "vendor.orn.data.lumservice.ILumService")
        self.start_service()
        status, lines = self.run_sdfctl("--timeout", "60", "doctor")
        self.assertEqual(status, 0)
        self.assertEqual([line.split()[:2] for line in lines], [
            ["ok", f"{step}:"] for step in ("service", "callback", "send", "up", "answer",
                                            "library")])

    def test_commands_of_a_script_are_answered_and_the_state_shown(self):
        self.start_service()
        status, lines = self.run_sdfctl("--timeout", "60", script="set-latency first 1 3\n"
                                                                  "reg-auto-filter-info\n")
        self.assertEqual(status, 0)
        self.assertTrue([line for line in lines if line.startswith("event levels: id=") and
                         line.endswith(" first=level-1 second=level-3")])
        status, lines = self.run_sdfctl("dump")
        self.assertEqual(status, 0)
        self.assertIn("clients: 0", lines)

    def test_messages_are_printed_with_the_full_runtime(self):
        service = self.start(EMULATOR, "--until-eof", "--print")
        self.assertRegex(service.stdout.readline(), "^ready: ")
        status, _ = self.run_sdfctl("--timeout", "60", "set-latency", "first", "1", "3")
        self.assertEqual(status, 0)
        text, _ = service.communicate(timeout=LIMIT)
        self.assertEqual(service.returncode, 0)
        self.assertIn("SET_LATENCY_LEVEL", text)
        self.assertIn("SLOT_ID_FIRST", text)

    def test_demo_goes_to_its_end(self):
        demo = self.start(DEMO, EMULATOR)
        text, _ = demo.communicate(timeout=LIMIT)
        self.assertEqual(demo.returncode, 0)
        self.assertEqual(text.splitlines()[-1], "The demo is done: everything happened as it should.")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
