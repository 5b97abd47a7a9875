#!/usr/bin/env python3
"""Writes the seed corpora under fuzz/corpus/<target>/ from the simulator's
real tool output, the golden listings and hand-made edge cases.

Usage: fuzz/make_seeds.py QDMSIM_BINARY

Seeds of targets that split their input with FuzzedDataProvider are laid out
the way it reads them: strings from the front (a backslash and one more byte
end a string, a doubled backslash is one backslash), integers from the back.
"""
import io
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tarfile
import tempfile
import zipfile

FUZZ = pathlib.Path(__file__).resolve().parent
SOURCE = FUZZ.parent
CORPUS = FUZZ / "corpus"


def field(text):
    """One FuzzedDataProvider string: escaped, then terminated."""
    data = text.encode("latin-1") if isinstance(text, str) else text
    return data.replace(b"\\", b"\\\\") + b"\\\n"


def raw(text):
    return text.encode("latin-1") if isinstance(text, str) else text


class Corpus:
    def __init__(self, target):
        self.folder = CORPUS / target
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)

    def add(self, name, data):
        (self.folder / name).write_bytes(data)


class Simulator:
    def __init__(self, binary):
        self.binary = binary
        self.work = tempfile.mkdtemp(prefix="qdmseeds.")
        self.state = os.path.join(self.work, "state.json")
        shutil.copy(SOURCE / "sim/demo/server.json", self.state)
        self.env = dict(os.environ, QDMSIM_STATE=self.state)

    def run(self, *args, check=False):
        done = subprocess.run([self.binary, *args], env=self.env, capture_output=True, check=check)
        return done.stdout

    def fault(self, verb, mode):
        self.run("fault", verb, mode, check=True)

    def clear(self, verb):
        self.run("fault", verb, "off", check=True)

    def wwpns(self):
        state = json.load(open(self.state))
        return [port["wwpn"] for adapter in state["adapters"] for port in adapter["ports"]]

    def module(self, kind, *args):
        out = os.path.join(self.work, kind + ".zip")
        self.run("build-" + kind, "--out", out, *args, check=True)
        return pathlib.Path(out).read_bytes()

    def close(self):
        shutil.rmtree(self.work, ignore_errors=True)


def golden_listings():
    return {p.stem: p.read_bytes() for p in sorted((SOURCE / "tests/golden/listhbas").glob("*.txt"))}


def write_discovery(sim):
    corpus = Corpus("fuzz_discovery")
    listing = sim.run("hbacmd", "listhbas")
    # Function, device and bus bytes sit at the end: the 16G port 0000:05:00.1,
    # the 8G ports on buses 3 and 4.
    for name, address in {"demo_bus5_fn1": (1, 0, 5), "demo_bus3": (0, 0, 3), "demo_bus4_fn1": (1, 0, 4)}.items():
        corpus.add(name, listing + bytes(address))
    sim.fault("listhbas", "error64")
    corpus.add("sim_error64", sim.run("hbacmd", "listhbas") + bytes((0, 0, 3)))
    sim.fault("listhbas", "error")
    corpus.add("sim_error", sim.run("hbacmd", "listhbas") + bytes((0, 0, 3)))
    sim.clear("listhbas")
    for name, data in golden_listings().items():
        corpus.add("golden_" + name, data + bytes((1, 0, 4)))
    return listing


def write_keyvalue(listing, attributes):
    corpus = Corpus("fuzz_keyvalue")
    corpus.add("listing_wwn", field("Port WWN|Permanent MAC") + field("Manageable HBA List") + field(":") + listing + b"\x01")
    corpus.add("listing_bus", field("PCI Bus Number") + field("Port WWN") + field(":") + listing + b"\x02")
    corpus.add("attributes_fw", field("FW Version") + field("HBA Attributes") + field(":") + attributes + b"\x00")
    corpus.add("crlf_equals", field("Status|Result") + field("[Adapter]") + field("=") +
               b"[Adapter]\r\nStatus = done  \r\nResult=0\r\n[Adapter]\r\nStatus = failed\r\n" + b"\x01")
    corpus.add("long_line", field("Key") + field("Tag") + field(":") + b"Tag\n" + b"x" * 200 + b"Key : " + b"v" * 140 + b"\n" + b"\x00")


def write_attrib(sim, attributes):
    corpus = Corpus("fuzz_attrib")
    alphabet = "0123456789abcdefABCDEF:-_."
    def tail(wwpn):
        return bytes(alphabet.index(c) for c in reversed(wwpn)) + bytes((len(wwpn) - 1,))
    wwpn = sim.wwpns()[0]
    for key in ("FW Version", "Boot Version", "Driver Version", "Serial Number"):
        corpus.add("sim_" + key.replace(" ", "_"), field(key) + attributes + tail(wwpn))
    sim.fault("HbaAttributes", "badversions")
    corpus.add("sim_badversions", field("FW Version") + sim.run("hbacmd", "HbaAttributes", wwpn) + tail(wwpn))
    sim.fault("HbaAttributes", "nokeys")
    corpus.add("sim_nokeys", field("Boot Version") + sim.run("hbacmd", "HbaAttributes", wwpn) + tail(wwpn))
    sim.clear("HbaAttributes")
    corpus.add("no_colon", field("FW Version") + b"FW Version 2.02a4\n" + tail(wwpn))


def write_version(sim):
    corpus = Corpus("fuzz_version")
    pairs = [("11.2.156.27", "11.4.204.8", " 4.1.334.0a "), ("2.02a4", "2.02a5", "2.10A12"),
             ("2.02a4", "2.02b1", "1.11x15"), ("1.0.10.0", "1.0.9.0", "01.2.3.4"),
             ("2.02-4", "2.0.2a4", "2.02a4b"), ("99999999999999999999.1.1.1", "1.2.3", "abc")]
    state = json.load(open(sim.state))
    for adapter in state["adapters"]:
        pairs.append((adapter["firmware"], adapter["bootBios"], adapter.get("firmwareNote", "")))
    version = sim.run("hbacmd", "version").decode("latin-1")
    pairs.append((version.split("Interface Version:")[1].split()[0], "10.2.370.16", version))
    for i, (a, b, c) in enumerate(pairs):
        separator = "." if i % 2 == 0 else "VEN_"
        corpus.add("pair%02d" % i, field(separator) + field(a) + field(b) + raw(c) + (i * 977).to_bytes(8, "little"))
    corpus.add("device_id", field("&") + field("0000:03:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF") +
               field("x") + b"y" + bytes(8))


def write_update_result():
    corpus = Corpus("fuzz_update_result")
    utility_message = b"SuccessMessage=completed successfully\nEndMessage=OCM script end\n"
    firmware_message = b"SuccessMessage=Firmware image applied\r\nEndMessage=Download session closed\r\n"
    corpus.add("utility_ok", field(utility_message) + b"Installation completed successfully\nOCM script end\n")
    corpus.add("utility_failed", field(utility_message) + b"Installation failed\nOCM script end\n")
    corpus.add("no_end_seen", field(utility_message) + b"Uninstallation completed successfully\n")
    corpus.add("firmware_ok", field(firmware_message) + b"Downloading...\r\nFirmware image applied\r\nDownload session closed\r\n")
    corpus.add("no_end_defined", field(b"SuccessMessage= done \n") + b"all done\n")
    corpus.add("no_success_defined", field(b"EndMessage=end\nSuccess=done\n") + b"done\nend\n")
    corpus.add("six_each", field(b"".join(b"SuccessMessage=s%d\nEndMessage=e%d\n" % (i, i) for i in range(6))) + b"e5 s5\ne0\n")
    corpus.add("blank_message", field(b"SuccessMessage=   \nSuccessMessage=\nEndMessage=\r\n") + b"x\n")
    corpus.add("download_failed", field(firmware_message) + b"Download failed\nDownload session closed\n")


def write_profile():
    corpus = Corpus("fuzz_profile")
    size = lambda n: n.to_bytes(2, "big")
    for ini in sorted((SOURCE / "tests/golden/ini").glob("*.ini")) + sorted((SOURCE / "sim/data").glob("*.ini")):
        corpus.add(ini.parent.name + "_" + ini.name, field("SuportDevice") + field("Device1") + ini.read_bytes() + size(256))
    corpus.add("huge_count", field("SuportDevice") + field("SuportDeviceNum") +
               b"[SuportDevice]\nSuportDeviceNum=2147483647\nVendor1=VEN_10DF\nDevice1=DEV_F100\n" + size(8))
    corpus.add("negative_count", field("suportdevice") + field("suportdevicenum") +
               b"[SuportDevice]\nSuportDeviceNum=-3\nVendor2=VEN_19A2\n" + size(0))
    corpus.add("long_value", field("S") + field("K") + b"[S]\nK=" + b"v" * 400 + b"\n" + size(300))


def write_ocm_config(sim):
    """Text, then the flag byte, then the file byte (bools are read from the back)."""
    corpus = Corpus("fuzz_ocm_config")
    for variant in ("good", "broken-port", "commented", "missing"):
        for name, discovery in (("disc", 1), ("rm", 0)):
            text = sim.run("config", name, "--config", variant, check=True)
            corpus.add(f"{name}_{variant}", text + bytes([1 - discovery, discovery]))
    corpus.add("crlf", b"ClientRemoteOperation : disabled\r\nClientOperationMode : enabled\r\n\0\1")
    corpus.add("repeated", b"ClientOperationMode:enabled\n" * 4 + b"\0\1")
    corpus.add("two_keys_one_line", b"ManagementHost:falseSecureManagement:disabled\n\1\0")


def add_zip(corpus, name, entries):
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w", zipfile.ZIP_DEFLATED) as archive:
        for entry in entries:
            archive.writestr(*entry)
    corpus.add(name, data.getvalue())


def symlink_info(name, target_mode=0o777):
    info = zipfile.ZipInfo(name)
    info.create_system = 3
    info.external_attr = (0o120000 | target_mode) << 16
    return info


def add_tar(corpus, name, members, mode="w"):
    data = io.BytesIO()
    with tarfile.open(fileobj=data, mode=mode) as archive:
        for info, content in members:
            info.size = len(content)
            archive.addfile(info, io.BytesIO(content))
    corpus.add(name, data.getvalue())


def tar_member(name, kind=tarfile.REGTYPE, link=""):
    info = tarfile.TarInfo(name)
    info.type = kind
    info.linkname = link
    return info


def write_unzip(sim):
    corpus = Corpus("fuzz_unzip")
    corpus.add("sim_firmware_16g", sim.module("firmware", "--name", "fcelx_16g", "--message"))
    corpus.add("sim_firmware_8g", sim.module("firmware", "--name", "fcelx_8g2p_10df_f100_10df_f100", "--duplicate", "bootbios"))
    corpus.add("sim_driver", sim.module("driver", "--version", "11.4.204.8"))
    corpus.add("sim_utility", sim.module("utility", "--version", "10.2.370.20"))
    add_zip(corpus, "traversal", [("x64/ok.txt", "ok"), ("../escaped.txt", "out")])
    add_zip(corpus, "deep_traversal", [("x64/../../../escaped.txt", "out")])
    add_zip(corpus, "absolute", [("/tmp/qdmfuzz_absolute.txt", "out")])
    add_zip(corpus, "dot_folders", [("./a/./b/", ""), ("a//b/c.txt", "c")])
    add_zip(corpus, "symlink", [(symlink_info("link"), ".."), ("link/escaped.txt", "out")])
    add_zip(corpus, "symlink_to_file", [(symlink_info("x64/install.sh"), "/bin/sh")])
    add_zip(corpus, "file_then_folder", [("a", "file"), ("a/b.txt", "b")])
    add_tar(corpus, "tar_symlink_then_file",
            [(tar_member("dir", tarfile.SYMTYPE, "/tmp"), b""), (tar_member("dir/escaped.txt"), b"out")])
    add_tar(corpus, "tar_hardlink", [(tar_member("a.txt"), b"a"), (tar_member("b.txt", tarfile.LNKTYPE, "../../a"), b"")])
    add_tar(corpus, "tar_fifo", [(tar_member("pipe", tarfile.FIFOTYPE), b"")], mode="w:gz")
    corpus.add("empty", b"")


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sim = Simulator(sys.argv[1])
    try:
        listing = write_discovery(sim)
        attributes = sim.run("hbacmd", "HbaAttributes", sim.wwpns()[-1])
        write_keyvalue(listing, attributes)
        write_attrib(sim, attributes)
        write_version(sim)
        write_update_result()
        write_profile()
        write_ocm_config(sim)
        write_unzip(sim)
    finally:
        sim.close()


if __name__ == "__main__":
    main()
