#!/usr/bin/env python3
"""Raw HTTP against `diagctl serve --password-file F --verifications 1 --verification-wait 0`:
of a burst of requests whose Basic credentials each need a yescrypt verification, those that find
the one verification taken are answered 503 with Retry-After and are not run, the others 401 (a
wrong password) or 200 (the right one); afterwards the server answers as before. With
--verifications 0 (no limit) no request of a burst is answered 503.

Every request of a burst is a RunDiagnostic: the number of records the runs leave is the number of
runs, so a request answered 503 but run anyway shows. The password file is rewritten before each
burst, so the server has forgotten every password it verified before.

Usage: raw-http-busy-verification.py PATH_TO_DIAGCTL"""
import base64
import http.client
import os
import re
import socket
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # no compiled copy of served.py in the source tree
import served  # noqa: E402

HOST = "127.0.0.1"
BURST = 8  # requests at once, more than the one verification and two waiting for it
ROUNDS = 20  # bursts tried before a 503 for the right password is given up on (a loaded machine
#              may serve a burst one request at a time)
PASSWORDS = {"operator": "g00d-pass", "reader": "r3ad-pass"}
failures = []


def fail(why):
    failures.append(why)
    print(f"FAIL {why}", flush=True)


def message(call):
    return (f'<?xml version="1.0" encoding="utf-8"?><CIM CIMVERSION="2.0" DTDVERSION="2.0">'
            f'<MESSAGE ID="1" PROTOCOLVERSION="1.0"><SIMPLEREQ>{call}</SIMPLEREQ></MESSAGE></CIM>')


NAMESPACE = ('<LOCALNAMESPACEPATH><NAMESPACE NAME="root"/><NAMESPACE NAME="cimv2"/>'
             '</LOCALNAMESPACEPATH>')


def enum_names(cls):
    return message(f'<IMETHODCALL NAME="EnumerateInstanceNames">{NAMESPACE}<IPARAMVALUE '
                   f'NAME="ClassName"><CLASSNAME NAME="{cls}"/></IPARAMVALUE></IMETHODCALL>')


def request(user, password, body, method, cim_object):
    body = body.encode()
    basic = base64.b64encode(f"{user}:{password}".encode()).decode()
    head = (f"POST /cimom HTTP/1.1\r\nHost: {HOST}\r\nConnection: close\r\n"
            f"Authorization: Basic {basic}\r\nContent-Type: application/xml; charset=\"utf-8\"\r\n"
            f"Content-Length: {len(body)}\r\nCIMOperation: MethodCall\r\nCIMMethod: {method}\r\n"
            f"CIMObject: {cim_object}\r\n\r\n")
    return head.encode() + body


def answer_of(sock):
    answer = http.client.HTTPResponse(sock, method="POST")
    answer.begin()
    return answer, answer.read()


def names_of(cls):
    with socket.create_connection((HOST, PORT), timeout=10) as sock:
        sock.sendall(request("reader", PASSWORDS["reader"], enum_names(cls),
                             "EnumerateInstanceNames", "root%2Fcimv2"))
        got, body = answer_of(sock)
    if got.status != 200:
        raise SystemExit(f"FAIL EnumerateInstanceNames {cls} as reader: HTTP {got.status}")
    return re.findall(r"<INSTANCENAME .*?</INSTANCENAME>", body.decode())


def set_password(user):
    subprocess.run([DIAGCTL, "passwd", PASSWORD_FILE, user], input=PASSWORDS[user] + "\n",
                   text=True, check=True, stdout=subprocess.DEVNULL)


def burst(run):
    """Sends BURST RunDiagnostic requests, every other one with a wrong password, all before any
    answer is read; returns (right password?, status, answer, body) for each."""
    socks = [socket.create_connection((HOST, PORT), timeout=30) for _ in range(BURST)]
    raws = [request("operator", PASSWORDS["operator"] if i % 2 == 0 else "wrong-pass", run,
                    "RunDiagnostic", "root%2Fcimv2%3AZORQ_NetDiagService") for i in range(BURST)]
    for sock, raw in zip(socks, raws):
        sock.sendall(raw)
    answers = []
    for i, sock in enumerate(socks):
        with sock:
            got, body = answer_of(sock)
            answers.append((i % 2 == 0, got.status, got, body))
    return answers


def check(right, status, got, body):
    """The complaint about one answer of a burst, or None."""
    if status == 503:
        # The wait for a verification (0 ms) rounded up to a second, at least one.
        if got.getheader("Retry-After") != "1":
            return f"503 with Retry-After {got.getheader('Retry-After')!r}"
        if b"<CIM" in body or got.getheader("CIMOperation"):
            return f"503 with a CIM answer: {body[:200]!r}"
        return None
    if right and status == 200:
        return None if b'<METHODRESPONSE NAME="RunDiagnostic"' in body else \
            f"200 without a RunDiagnostic response: {body[:200]!r}"
    if not right and status == 401:
        return None if (got.getheader("WWW-Authenticate") or "").startswith("Basic") else \
            "401 without WWW-Authenticate: Basic"
    return f"HTTP {status} for {'the right' if right else 'a wrong'} password"


def run_call():
    """A RunDiagnostic of the network link test on lo."""
    service = names_of("ZORQ_NetDiagService")[0]
    port = next(n for n in names_of("ZORQ_NetworkPort") if ">lo</KEYVALUE>" in n)
    return message(f'<METHODCALL NAME="RunDiagnostic"><LOCALINSTANCEPATH>{NAMESPACE}{service}'
                   f'</LOCALINSTANCEPATH><PARAMVALUE NAME="ManagedElement"><VALUE.REFERENCE>'
                   f'{port}</VALUE.REFERENCE></PARAMVALUE></METHODCALL>')


def one_verification_at_a_time(run):
    records_before = len(names_of("ZORQ_NetDiagRecord"))
    ran = busy = busy_right = 0
    for number in range(1, ROUNDS + 1):
        set_password("operator")  # the server forgets every verified password
        answers = burst(run)
        for right, status, got, body in answers:
            complaint = check(right, status, got, body)
            if complaint:
                fail(f"burst {number}: {complaint}")
        ran += sum(1 for _, status, _, _ in answers if status == 200)
        busy += sum(1 for _, status, _, _ in answers if status == 503)
        busy_right += sum(1 for right, status, _, _ in answers if right and status == 503)
        print(f"burst {number}: {' '.join(str(a[1]) for a in answers)}", flush=True)
        if busy_right:
            break
    if not busy_right:
        fail(f"in {ROUNDS} bursts of {BURST} no request with the right password got 503 "
             f"({busy} with a wrong one did)")

    records = len(names_of("ZORQ_NetDiagRecord")) - records_before
    if records != ran:
        fail(f"{ran} runs answered 200 left {records} records")
    with open(ACCESS_LOG) as log:
        logged = log.read().count("503 no password verification free in time for user operator")
    if logged != busy:
        fail(f"{busy} answers 503, {logged} in the access log")

    # Afterwards, one at a time: the right password is served, a wrong one refused.
    for password, expected in ((PASSWORDS["operator"], 200), ("wrong-pass", 401)):
        with socket.create_connection((HOST, PORT), timeout=10) as sock:
            sock.sendall(request("operator", password, enum_names("ZORQ_ComputerSystem"),
                                 "EnumerateInstanceNames", "root%2Fcimv2"))
            got, _ = answer_of(sock)
        if got.status != expected:
            fail(f"after the bursts, HTTP {got.status} instead of {expected}")
    if server.poll() is not None:
        fail(f"the server exited with {server.returncode}")
    print(f"{busy} answers 503 ({busy_right} for the right password), {ran} runs", flush=True)


def no_limit(run):
    """Without a limit no request waits for a verification, so none is answered 503 (a limit of
    one would show in one burst or another)."""
    for number in range(1, 4):
        set_password("operator")
        answers = burst(run)
        print(f"without a limit, burst {number}: {' '.join(str(a[1]) for a in answers)}",
              flush=True)
        for right, status, got, body in answers:
            complaint = "503" if status == 503 else check(right, status, got, body)
            if complaint:
                fail(f"without a limit, burst {number}: {complaint}")


def start(verifications):
    """diagctl serve with that many verifications at once and no wait for one; sets PORT."""
    global PORT, server
    server, PORT = served.start([DIAGCTL, "serve", "--listen", f"{HOST}:0", "--password-file",
                                 PASSWORD_FILE, "--verifications", str(verifications),
                                 "--verification-wait", "0", "--access-log", ACCESS_LOG],
                                os.path.join(WORK, f"serve-{verifications}.err"))


def stop():
    server.terminate()
    server.wait(10)


if __name__ == "__main__":
    DIAGCTL = sys.argv[1]
    with tempfile.TemporaryDirectory() as WORK:
        PASSWORD_FILE = os.path.join(WORK, "passwd")
        ACCESS_LOG = os.path.join(WORK, "access.log")
        for user in PASSWORDS:
            set_password(user)
        start(1)
        try:
            run = run_call()
            one_verification_at_a_time(run)
        finally:
            stop()
        start(0)
        try:
            no_limit(run)
        finally:
            stop()
    print(f"{len(failures)} failure(s)" if failures else "all cases passed")
    sys.exit(1 if failures else 0)
