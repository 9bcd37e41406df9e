"""A Kerberos realm for the system tests: a KDC on a free port of loopback, its database in a temporary folder, ended by process id."""

import os
import pathlib
import shutil
import subprocess
import tempfile

from tape_server import free_port

PROGRAMS = [pathlib.Path(path) for path in ("/usr/sbin/krb5kdc", "/usr/sbin/kdb5_util", "/usr/sbin/kadmin.local", "/usr/bin/kinit")]
REALM = "TARNO.TEST"


def available():
    return all(program.exists() for program in PROGRAMS)


class KerberosRealm:
    """Users have their names as passwords; the services' keys are in `keytab`. `environment` makes a program live in this realm."""

    def __init__(self, users, services):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kerberos-"))
        self.keytab = self.folder / "server.keytab"
        self.environment = {"KRB5_CONFIG": str(self.folder / "krb5.conf"), "KRB5_KDC_PROFILE": str(self.folder / "kdc.conf"),
                            "KRB5CCNAME": str(self.folder / "tickets"), "KRB5RCACHENAME": f"dfl:{self.folder / 'replays'}"}
        self.write_settings(f"127.0.0.1:{free_port()}")
        self.run("/usr/sbin/kdb5_util", "create", "-s", "-P", "master")
        commands = [f"addprinc -pw {user} {user}" for user in users]
        for service in services:
            commands += [f"addprinc -randkey {service}", f"ktadd -k {self.keytab} {service}"]
        self.run("/usr/sbin/kadmin.local", said="\n".join(commands) + "\n")
        self.kdc = subprocess.Popen(["/usr/sbin/krb5kdc", "-n"], env={**os.environ, **self.environment}, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        while "commencing operation" not in (line := self.kdc.stderr.readline()):
            if not line:
                raise RuntimeError("the KDC did not start")

    def write_settings(self, address):
        (self.folder / "krb5.conf").write_text(
            f"[libdefaults]\n default_realm = {REALM}\n dns_lookup_kdc = false\n dns_lookup_realm = false\n"
            " dns_canonicalize_hostname = false\n rdns = false\n udp_preference_limit = 1\n"
            f"[realms]\n {REALM} = {{\n  kdc = {address}\n }}\n")
        (self.folder / "kdc.conf").write_text(
            f"[kdcdefaults]\n kdc_listen = {address}\n kdc_tcp_listen = {address}\n[realms]\n {REALM} = {{\n"
            f"  database_name = {self.folder / 'principal'}\n  key_stash_file = {self.folder / 'stash'}\n }}\n"
            "[logging]\n kdc = STDERR\n admin_server = FILE:/dev/null\n")

    def run(self, *command, said=""):
        subprocess.run(command, env={**os.environ, **self.environment}, input=said, text=True, check=True, timeout=60,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def log_in(self, user):
        self.run("/usr/bin/kinit", user, said=user + "\n")

    def log_out(self):
        (self.folder / "tickets").unlink(missing_ok=True)

    def close(self):
        self.kdc.terminate()
        self.kdc.wait(30)
        self.kdc.stderr.close()
        shutil.rmtree(self.folder, ignore_errors=True)
