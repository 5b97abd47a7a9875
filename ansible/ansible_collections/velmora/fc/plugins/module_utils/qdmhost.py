# -*- coding: utf-8 -*-
# Copyright: Velmora
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)
"""Runs ``qdmhost --json`` and turns its one JSON document into a result.

The only place that starts qdmhost, reads its output and names its exit
codes, so that every module fails the same way for the same cause.
"""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json
import os
import signal
import subprocess
from collections import namedtuple

# The words of qdmhost's documents, defined once for the collection (qdmhost
# defines them in its model/Vocabulary.h; exit names come in every document).
MODULE_KINDS = ("firm", "driver", "util")
# A port's status is the worst of its modules' in this order; no-package and
# not-installed say that there is nothing to update and do not count.
STATUSES_WORST_FIRST = ("unreadable", "older", "newer", "current")
# Statuses that an update changes (qdmhost updates a newer adapter back too).
PENDING_STATUSES = ("older", "newer", "unreadable")
# Exit codes of a check that are findings rather than failures: ok, refused, missing-component.
CHECK_FINDINGS = (0, 5, 10)

# Failures of the run itself, where qdmhost gave no exit code of its own.
TIMEOUT = "timeout"
# qdmhost's exit code after a signal stopped an update between steps.
EXIT_INTERRUPTED = 12
BAD_OUTPUT = "bad-output"
NOT_STARTED = "not-started"

ENVELOPE_FIELDS = ("schemaVersion", "qdmhost", "revision", "host", "time", "command", "exitCode", "exitName")

# Time a timed-out qdmhost gets to remove its staging folder before it is killed.
TERM_GRACE_SECONDS = 5
# On a time-out an update finishes the step in progress (a firmware download
# with its polls takes minutes) and stops; it gets as long again as the
# time-out, at most this; one still running then is killed, with its tools.
STEP_FINISH_SECONDS = 1800
STDERR_EXCERPT = 400

# A command's document without the envelope fields, the envelope, and the exit.
Answer = namedtuple("Answer", "document envelope exit_code exit_name")


class QdmhostError(Exception):
    """qdmhost could not give an answer, or answered with a failure."""

    def __init__(self, exit_name, detail, exit_code=None, reason=None, document=None):
        exit_text = "" if exit_code is None else " (exit %d)" % exit_code
        super(QdmhostError, self).__init__("qdmhost failed: %s%s: %s" % (exit_name, exit_text, detail))
        self.exit_name = exit_name
        self.exit_code = exit_code
        self.reason = reason
        self.document = document

    def to_result(self):
        """The return values every module adds to a failure."""
        result = {"exit_name": self.exit_name, "exit_code": self.exit_code}
        if self.reason:
            result["reason"] = self.reason
        return result


def command_line(params, command):
    """qdmhost's argument vector for COMMAND (a list) and the module's options."""
    argv = [params["qdmhost"], "--json"]
    for option in ("root", "repo"):
        if params.get(option):
            argv += ["--" + option, params[option]]
    for port in params.get("port") or []:
        argv += ["--port", port]
    if params.get("wait"):
        argv += ["--wait", str(params["wait"])]
    for flag in ("allow_unsigned", "allow_downgrade"):
        if params.get(flag):
            argv.append("--" + flag.replace("_", "-"))
    argv += list(command)
    # Options of the update command itself.
    if params.get("allow_path_loss"):
        argv.append("--allow-path-loss")
    if params.get("path_wait") is not None:
        argv += ["--path-wait", str(params["path_wait"])]
    return argv


def _excerpt(text):
    text = text.strip()
    return text if len(text) <= STDERR_EXCERPT else "..." + text[-STDERR_EXCERPT:]


def parse_output(returncode, stdout, stderr, accepted=(0,)):
    """The Answer for an exit code in ACCEPTED; QdmhostError for anything else."""
    try:
        document = json.loads(stdout)
    except ValueError as error:
        raise QdmhostError(BAD_OUTPUT, "no JSON document on standard output (%s) after exit %s; standard error: %s"
                           % (error, returncode, _excerpt(stderr)), returncode)
    if not isinstance(document, dict):
        raise QdmhostError(BAD_OUTPUT, "the JSON on standard output is not an object", returncode)
    error = document.get("error") if isinstance(document.get("error"), dict) else {}
    # qdmhost names its exit code; a code without a name came from something else.
    name = str(document.get("exitName") or error.get("name") or "exit-%s" % returncode)
    if returncode not in accepted:
        detail = error.get("message") or "standard error: %s" % _excerpt(stderr)
        raise QdmhostError(name, detail, returncode, error.get("reason"), document)
    envelope = dict((key, document.pop(key)) for key in ENVELOPE_FIELDS if key in document)
    return Answer(document, envelope, returncode, name)


def _session_members(session):
    """Processes of SESSION: the adapter tools run in process groups of their own."""
    members = []
    for entry in os.listdir("/proc"):
        try:
            with open("/proc/%s/stat" % entry) as stat:
                fields = stat.read().rsplit(")", 1)[1].split()
        except (IOError, OSError, IndexError):
            continue
        if int(fields[3]) == session:
            members.append(int(entry))
    return members


def _stop(process):
    """Ends qdmhost and everything it started (a hanging adapter tool too);
    the standard error it wrote."""
    for sig, wait in ((signal.SIGTERM, TERM_GRACE_SECONDS), (signal.SIGKILL, TERM_GRACE_SECONDS)):
        for pid in _session_members(process.pid):
            try:
                os.kill(pid, sig)
            except OSError:
                pass
        try:
            return process.communicate(timeout=wait)[1]
        except subprocess.TimeoutExpired:
            continue
    # Something that left the session still holds the pipes: stop reading.
    process.stdout.close()
    process.stderr.close()
    process.wait()
    return ""


def _finishing_step(stderr):
    """qdmhost's own line about the step it finished after the signal."""
    lines = [line for line in stderr.splitlines() if "SIGTERM received:" in line]
    return lines[0].split("SIGTERM received:", 1)[1].strip() if lines else "no step was in progress"


def _interrupt(process, argv, timeout):
    """Asks qdmhost to stop (SIGTERM to it alone: an update finishes the step
    in progress and stops with exit 12); ends it and its tools when it does
    not stop so. The QdmhostError that reports the time-out."""
    os.kill(process.pid, signal.SIGTERM)
    try:
        process.wait(timeout=min(timeout, STEP_FINISH_SECONDS))
    except subprocess.TimeoutExpired:
        pass
    if process.returncode != EXIT_INTERRUPTED:
        stderr = _stop(process)
        return QdmhostError(TIMEOUT, "%s did not finish within %s seconds, nor stop after its step in progress, and "
                            "was killed with the tools it ran; standard error: %s"
                            % (" ".join(argv[2:]), timeout, _excerpt(stderr)))
    try:
        stdout, stderr = process.communicate(timeout=TERM_GRACE_SECONDS)
    except subprocess.TimeoutExpired:
        stdout, stderr = "", _stop(process)
    try:
        document = json.loads(stdout)
    except ValueError:
        document = None
    return QdmhostError("interrupted", "the time-out (%s seconds) stopped the update after its step in progress (%s); "
                        "the remaining modules were skipped: run it again to finish"
                        % (timeout, _finishing_step(stderr)), EXIT_INTERRUPTED,
                        document=document if isinstance(document, dict) else None)


def run(argv, timeout, accepted=(0,)):
    """Runs qdmhost with ARGV; stops it after TIMEOUT seconds.

    subprocess rather than AnsibleModule.run_command: qdmhost runs in a session
    of its own so that one that will not stop is ended with the adapter tools
    it started.
    """
    try:
        process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   start_new_session=True, universal_newlines=True,
                                   errors="replace")
    except OSError as error:
        raise QdmhostError(NOT_STARTED, "cannot run %s: %s" % (argv[0], error.strerror))
    try:
        stdout, stderr = process.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        raise _interrupt(process, argv, timeout)
    return parse_output(process.returncode, stdout, stderr, accepted)


def common_argument_spec(default_timeout):
    """The options every module has."""
    return dict(
        qdmhost=dict(type="path", default="/usr/sbin/qdmhost"),
        repo=dict(type="path"),
        root=dict(type="path"),
        port=dict(type="list", elements="str", default=[]),
        timeout=dict(type="int", default=default_timeout),
    )


def run_for_module(module, command, accepted=(0,)):
    """run() with the module's options; QdmhostError becomes fail_json."""
    try:
        return run(command_line(module.params, command), module.params["timeout"], accepted=accepted)
    except QdmhostError as error:
        module.fail_json(msg=str(error), **error.to_result())
