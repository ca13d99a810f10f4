#!/usr/bin/env python3
"""Raw HTTP against `diagctl serve`: every class of faulty request gets the HTTP status and the
CIMError header that name it (or a CIM error in a 200 answer), and after every one of them a good
request on a fresh connection is still answered and the process is still running.

Usage: raw-http-errors.py PATH_TO_DIAGCTL"""
import http.client
import os
import re
import socket
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # no compiled copy of served.py in the source tree
import served  # noqa: E402

NS = "root/cimv2"
HOST = "127.0.0.1"
IDLE_TIMEOUT = 3  # seconds, given to the server with --idle-timeout
# given to the server with --connections-per-address: more than the stalled clients below
PER_ADDRESS = 10
failures = []


def fail(case, why):
    failures.append(f"{case}: {why}")
    print(f"FAIL {case}: {why}", flush=True)


def message(call, protocol="1.0"):
    return (f'<?xml version="1.0" encoding="utf-8"?><CIM CIMVERSION="2.0" DTDVERSION="2.0">'
            f'<MESSAGE ID="1" PROTOCOLVERSION="{protocol}"><SIMPLEREQ>{call}</SIMPLEREQ></MESSAGE>'
            f'</CIM>')


def imethod(name, params, ns=NS):
    path = "".join(f'<NAMESPACE NAME="{n}"/>' for n in ns.split("/"))
    return (f'<IMETHODCALL NAME="{name}"><LOCALNAMESPACEPATH>{path}</LOCALNAMESPACEPATH>{params}'
            f'</IMETHODCALL>')


def classname(cls):
    return f'<IPARAMVALUE NAME="ClassName"><CLASSNAME NAME="{cls}"/></IPARAMVALUE>'


ENUM_NAMES = message(imethod("EnumerateInstanceNames", classname("ZORQ_ComputerSystem")))


def request(body, method="POST", path="/cimom", headers=None, keep_alive=False):
    """The raw bytes of a request: `headers` adds to or (with None values) removes from the
    CIM headers of an EnumerateInstanceNames in root/cimv2."""
    body = body.encode() if isinstance(body, str) else body
    h = {"Host": f"{HOST}", "Content-Type": 'application/xml; charset="utf-8"',
         "Content-Length": str(len(body)), "CIMOperation": "MethodCall",
         "CIMMethod": "EnumerateInstanceNames", "CIMObject": "root%2Fcimv2"}
    if not keep_alive:
        h["Connection"] = "close"
    for name, value in (headers or {}).items():
        if value is None:
            h.pop(name, None)
        else:
            h[name] = value
    head = f"{method} {path} HTTP/1.1\r\n" + "".join(f"{k}: {v}\r\n" for k, v in h.items())
    return head.encode() + b"\r\n" + body


def read_answer(sock, method="POST"):
    answer = http.client.HTTPResponse(sock, method=method)
    answer.begin()
    return answer, answer.read()


def send(raw, timeout=10):
    with socket.create_connection((HOST, PORT), timeout=timeout) as sock:
        sock.sendall(raw)
        return read_answer(sock)


def expect(case, answer, status, cim_error=None, body_has=None, known_fault=None):
    """known_fault: why the server is known to answer otherwise; a wrong answer is then reported
    but does not fail the test, and a right one asks for the mark to go."""
    got, body = answer
    wrong = []
    if got.status != status:
        wrong.append(f"HTTP {got.status}, expected {status}")
    if got.getheader("CIMError") != cim_error:
        wrong.append(f"CIMError {got.getheader('CIMError')!r}, expected {cim_error!r}")
    if body_has and not re.search(body_has, body.decode(errors="replace")):
        wrong.append(f"the answer does not match {body_has!r}: {body[:300]!r}")
    if known_fault:
        print(f"{'XFAIL' if wrong else 'XPASS'} {case}: {'; '.join(wrong) or 'now right'}"
              f" ({known_fault})", flush=True)
        return body
    for why in wrong:
        fail(case, why)
    print(f"ok   {case}: {got.status} {got.getheader('CIMError') or ''}", flush=True)
    return body


def server_goes_on(after):
    if server.poll() is not None:
        fail(after, f"the server exited with {server.returncode}")
        raise SystemExit(report())
    try:
        got, body = send(request(ENUM_NAMES), timeout=5)
        if got.status != 200 or b"<INSTANCENAME" not in body:
            fail(after, f"a good request afterwards got {got.status}: {body[:200]!r}")
    except OSError as e:
        fail(after, f"a good request afterwards failed: {e}")


def report():
    print(f"{len(failures)} failure(s)" if failures else "all cases passed")
    return 1 if failures else 0


def cim_error_case(case, call, method, code, cim_object="root%2Fcimv2"):
    expect(case, send(request(message(call), headers={"CIMMethod": method,
                                                      "CIMObject": cim_object})),
           200, body_has=f'<ERROR CODE="{code}"')


def slow_senders():
    """Clients whose bytes trickle in, on a server of four connections, an idle timeout too long
    to matter and a request timeout of 2 s: a request must still arrive whole in time, and
    clients stalled before their first line cannot keep a new client out."""
    slow, port = served.start([sys.argv[1], "serve", "--listen", f"{HOST}:0",
                               "--idle-timeout", "30", "--request-timeout", "2",
                               "--connections", "4", "--connections-per-address", "0"],
                              os.path.join(work, "slow.err"))
    try:
        case = "a request trickling in a byte at a time after its first line"
        raw = request(ENUM_NAMES)
        first_line = raw.index(b"\r\n") + 2
        with socket.create_connection((HOST, port), timeout=10) as sock:
            sock.sendall(raw[:first_line])
            started = time.monotonic()
            sock.setblocking(False)
            answer = b""
            for byte in raw[first_line:]:
                try:
                    sock.send(bytes([byte]))
                    answer += sock.recv(4096)
                except BlockingIOError:
                    pass
                except OSError:
                    break
                if answer or time.monotonic() - started > 6:
                    break
                time.sleep(0.25)
            sock.settimeout(5)
            try:
                while chunk := sock.recv(4096):
                    answer += chunk
            except OSError:
                pass
            took = time.monotonic() - started
        if not answer.startswith(b"HTTP/1.1 408 ") or not 1.5 < took < 4:
            fail(case, f"after {took:.1f} s: {answer[:60]!r}")
        else:
            print(f"ok   {case}: 408 after {took:.1f} s", flush=True)

        case = "every connection held by clients stalled before their first line"
        stalled = [socket.create_connection((HOST, port), timeout=5) for _ in range(4)]
        for sock in stalled:
            sock.sendall(b"PO")
        time.sleep(2.5)  # past the time a waiting connection is spared for
        try:
            with socket.create_connection((HOST, port), timeout=5) as sock:
                sock.sendall(raw)
                expect(case, read_answer(sock), 200, body_has="<INSTANCENAME")
        except (OSError, http.client.HTTPException) as e:
            fail(case, f"a new client was not served: {e!r}")
        closed = 0
        for sock in stalled:
            with sock:
                try:
                    sock.settimeout(0.5)
                    closed += sock.recv(4096) == b""
                except ConnectionResetError:
                    closed += 1
                except OSError:
                    pass
        if closed != 1:
            fail(case, f"{closed} stalled clients were closed for it, not the one")
    finally:
        slow.terminate()
        slow.wait(10)


def main():
    # The good requests themselves: GetInstance of an instance EnumerateInstanceNames names.
    names = expect("EnumerateInstanceNames", send(request(ENUM_NAMES)), 200,
                   body_has="<INSTANCENAME").decode()
    first = re.search(r"<INSTANCENAME.*?</INSTANCENAME>", names, re.S).group(0)
    param = f'<IPARAMVALUE NAME="InstanceName">{first}</IPARAMVALUE>'
    expect("GetInstance", send(request(message(imethod("GetInstance", param)),
                                       headers={"CIMMethod": "GetInstance"})),
           200, body_has='<INSTANCE CLASSNAME="ZORQ_ComputerSystem"')

    # HTTP-level refusals.
    got, _ = send(request(b"", method="GET", headers={"Content-Length": None}))
    expect("GET instead of POST", (got, b""), 405)
    if "POST" not in (got.getheader("Allow") or ""):
        fail("GET instead of POST", "no Allow header naming POST")
    server_goes_on("GET")
    expect("a path other than /cimom", send(request(ENUM_NAMES, path="/other")), 404)
    server_goes_on("wrong path")

    # The CIM headers.
    expect("no CIMOperation header", send(request(ENUM_NAMES, headers={"CIMOperation": None})),
           400, "unsupported-operation")
    server_goes_on("no CIMOperation")
    expect("CIMProtocolVersion 2.0", send(request(ENUM_NAMES,
                                                  headers={"CIMProtocolVersion": "2.0"})),
           501, "unsupported-protocol-version")
    server_goes_on("CIMProtocolVersion")
    expect("PROTOCOLVERSION 2.0 in the body", send(request(message(
        imethod("EnumerateInstanceNames", classname("ZORQ_ComputerSystem")), protocol="2.0"))),
           501, "unsupported-protocol-version")
    server_goes_on("PROTOCOLVERSION")
    for case, headers in [("CIMMethod naming another method", {"CIMMethod": "GetInstance"}),
                          ("no CIMMethod header", {"CIMMethod": None}),
                          ("CIMObject naming another namespace", {"CIMObject": "root%2Fother"}),
                          ("no CIMObject header", {"CIMObject": None})]:
        expect(case, send(request(ENUM_NAMES, headers=headers)), 400, "header-mismatch")
        server_goes_on(case)

    # M-POST: its headers carry the prefix the Man header gives them.
    mapping = '"http://www.dmtf.org/cim/mapping/http/v1.0"; ns=73'
    prefixed = {"Man": mapping, "CIMOperation": None, "CIMMethod": None, "CIMObject": None,
                "73-CIMOperation": "MethodCall", "73-CIMMethod": "EnumerateInstanceNames",
                "73-CIMObject": "root%2Fcimv2"}
    got, body = send(request(ENUM_NAMES, method="M-POST", headers=prefixed))
    expect("M-POST with its Man header", (got, body), 200, body_has="<INSTANCENAME")
    if got.getheader("Ext") is None or got.getheader("73-CIMOperation") != "MethodResponse":
        fail("M-POST with its Man header", "no Ext or 73-CIMOperation header in the answer")
    server_goes_on("M-POST")
    # Without a mandatory declaration the server cannot have understood the extension: 510, which
    # clients take as the sign to retry with POST.
    expect("M-POST without Man", send(request(ENUM_NAMES, method="M-POST",
                                              headers=dict(prefixed, Man=None))), 510)
    server_goes_on("M-POST without Man")
    expect("M-POST with another extension in Man", send(request(
        ENUM_NAMES, method="M-POST", headers=dict(prefixed, Man='"http://example.org/x"; ns=73'))),
           510)
    server_goes_on("M-POST with another extension")

    # Bodies that are not CIM-XML, or XML the server must not process.
    expect("an empty body", send(request(b"")), 400, "request-not-well-formed")
    expect("truncated XML", send(request(ENUM_NAMES[:-20])), 400, "request-not-well-formed")
    expect("XML that is not a CIM message", send(request("<NOTCIM/>")), 400, "request-not-valid")
    expect("CIMVERSION 3.0", send(request(ENUM_NAMES.replace('CIMVERSION="2.0"',
                                                             'CIMVERSION="3.0"'))),
           501, "unsupported-cim-version")
    expect("a CIM element without its versions", send(request("<CIM><MESSAGE/></CIM>")), 400,
           "request-not-valid")
    expect("a call without its namespace", send(request(message(
        '<IMETHODCALL NAME="EnumerateInstanceNames"/>'))), 400, "request-not-valid")
    server_goes_on("malformed bodies")
    bomb = ('<?xml version="1.0"?><!DOCTYPE CIM [<!ENTITY a "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa">' +
            "".join(f'<!ENTITY {chr(98 + i)} "' + f"&{chr(97 + i)};" * 10 + '">'
                    for i in range(9)) + ']>' + message("&j;").split("?>", 1)[1])
    started = time.monotonic()
    expect("an entity expansion bomb", send(request(bomb)), 400, "request-not-well-formed")
    if time.monotonic() - started > 2:
        fail("an entity expansion bomb", "the answer took more than 2 s")
    server_goes_on("entity bomb")
    xxe = ('<?xml version="1.0"?><!DOCTYPE CIM [<!ENTITY x SYSTEM "file:///etc/passwd">]>' +
           message(imethod("EnumerateInstanceNames", classname("&x;"))).split("?>", 1)[1])
    body = expect("an external entity", send(request(xxe)), 400, "request-not-well-formed")
    if b"root:" in body:
        fail("an external entity", "the answer holds /etc/passwd")
    server_goes_on("external entity")
    deep = "<CIM>" + "<A>" * 100000 + "</A>" * 100000 + "</CIM>"
    expect("100,000 nested elements", send(request(deep)), 400, "request-not-well-formed")
    server_goes_on("deep nesting")
    bad_utf8 = message(imethod("EnumerateInstances", classname("ZORQ_ComputerSystem") +
                               '<IPARAMVALUE NAME="LocalOnly"><VALUE>\x00</VALUE></IPARAMVALUE>'))
    bad_utf8 = bad_utf8.encode().replace(b"\x00", b"tr\xc3\x28ue\xff")
    expect("invalid UTF-8 in a VALUE", send(request(bad_utf8,
                                                    headers={"CIMMethod": "EnumerateInstances"})),
           400, "request-not-well-formed")
    server_goes_on("invalid UTF-8")

    # A body announced past the limit (16 MiB) is refused before it is read: only the headers
    # and a few bytes are sent, and the answer comes at once.
    with socket.create_connection((HOST, PORT), timeout=5) as sock:
        started = time.monotonic()
        sock.sendall(request(b"<?xml version", headers={"Content-Length": str(17 << 20)}))
        expect("Content-Length past the limit", read_answer(sock), 413)
        if time.monotonic() - started > 2:
            fail("Content-Length past the limit", "the answer took more than 2 s")
    server_goes_on("Content-Length past the limit")
    # A chunked body that grows past the limit: the server stops reading it.
    with socket.create_connection((HOST, PORT), timeout=10) as sock:
        sock.sendall(request(b"", headers={"Content-Length": None,
                                           "Transfer-Encoding": "chunked"}))
        chunk = b"%x\r\n" % (1 << 20) + b" " * (1 << 20) + b"\r\n"
        try:
            for _ in range(20):
                sock.sendall(chunk)
            sock.sendall(b"0\r\n\r\n")
            expect("a chunked body past the limit", read_answer(sock), 413)
        except (ConnectionError, http.client.HTTPException) as e:
            fail("a chunked body past the limit", f"the connection was dropped unanswered: {e!r}")
    server_goes_on("chunked body past the limit")
    # ... but not without end: past twice the limit the connection is cut. The client sends
    # twice the limit and as much again, more than the two sides' socket buffers hold.
    with socket.create_connection((HOST, PORT), timeout=10) as sock:
        sock.sendall(request(b"", headers={"Content-Length": None,
                                           "Transfer-Encoding": "chunked"}))
        try:
            for _ in range(64):
                sock.sendall(chunk)
            fail("a chunked body past twice the limit", "the server read all 64 MiB")
        except ConnectionError:
            print("ok   a chunked body past twice the limit: cut off", flush=True)
    server_goes_on("chunked body past twice the limit")

    # A body whose end cannot be known for certain is refused at once, not read until the
    # client gives up.
    for coding, status in (("gzip", 501), ("gzip, chunked", 501), ("chunked, chunked", 501),
                           ("chunked ", 501)):
        with socket.create_connection((HOST, PORT), timeout=5) as sock:
            started = time.monotonic()
            sock.sendall(request(ENUM_NAMES, headers={"Content-Length": None,
                                                      "Transfer-Encoding": coding}))
            expect(f"Transfer-Encoding: {coding}", read_answer(sock), status)
            if time.monotonic() - started > 2:
                fail(f"Transfer-Encoding: {coding}", "the answer took more than 2 s")
    body = ENUM_NAMES.encode()
    raw = request(body).replace(b"\r\n\r\n", f"\r\nContent-Length: {len(body) - 5}\r\n\r\n"
                                .encode(), 1)
    expect("two different Content-Length headers", send(raw), 400)
    expect("Content-Length beside chunked", send(request(ENUM_NAMES, headers={
        "Transfer-Encoding": "chunked"})), 400)
    server_goes_on("bodies of uncertain length")

    # Clients that send half a request and stall (each holds a server thread of its own):
    # others are served meanwhile, and the server closes them after its idle timeout.
    stalled = [socket.create_connection((HOST, PORT), timeout=IDLE_TIMEOUT + 5) for _ in range(8)]
    started = time.monotonic()
    for i, sock in enumerate(stalled):
        sock.sendall(request(ENUM_NAMES)[:60] if i % 2 else request(ENUM_NAMES)[:-40])
    for i in range(3):
        server_goes_on(f"stalled clients ({i})")
    if time.monotonic() - started > 1:
        fail("stalled clients", "other clients waited on them")
    closed = 0
    for sock in stalled:
        with sock:
            try:
                closed += sock.recv(4096) == b""
            except ConnectionResetError:
                closed += 1
            except socket.timeout:
                pass
    waited = time.monotonic() - started
    if closed < len(stalled) or waited > IDLE_TIMEOUT + 2:
        fail("stalled clients", f"not closed after {waited:.1f} s")
    else:
        print(f"ok   stalled clients: all closed after {waited:.1f} s", flush=True)

    slow_senders()

    # CIM errors travel in a 200 answer.
    cim_error_case("CreateInstance (not supported)", imethod(
        "CreateInstance", '<IPARAMVALUE NAME="NewInstance"><INSTANCE CLASSNAME="ZORQ_ComputerSystem">'
        '</INSTANCE></IPARAMVALUE>'), "CreateInstance", 7)
    server_goes_on("CreateInstance")
    cim_error_case("a namespace not served", imethod(
        "EnumerateInstanceNames", classname("ZORQ_ComputerSystem"), ns="root/nosuch"),
        "EnumerateInstanceNames", 3, cim_object="root%2Fnosuch")
    server_goes_on("bad namespace")
    cim_error_case("a class not known", imethod(
        "EnumerateInstanceNames", classname("ZORQ_NoSuchClass")), "EnumerateInstanceNames", 5)
    server_goes_on("unknown class")

    # A long answer streams: chunked, and with TE: trailers its status comes in a trailer.
    def names_of(cls):
        _, body = send(request(message(imethod("EnumerateInstanceNames", classname(cls)))))
        return re.findall(r"<INSTANCENAME .*?</INSTANCENAME>", body.decode())
    service = names_of("ZORQ_NetDiagService")[0]
    port = next(n for n in names_of("ZORQ_NetworkPort") if ">lo</KEYVALUE>" in n)
    run = message(f'<METHODCALL NAME="RunDiagnostic"><LOCALINSTANCEPATH>'
                  f'<LOCALNAMESPACEPATH><NAMESPACE NAME="root"/><NAMESPACE NAME="cimv2"/>'
                  f'</LOCALNAMESPACEPATH>{service}</LOCALINSTANCEPATH><PARAMVALUE '
                  f'NAME="ManagedElement"><VALUE.REFERENCE>{port}</VALUE.REFERENCE></PARAMVALUE>'
                  f'</METHODCALL>')
    with socket.create_connection((HOST, PORT), timeout=10) as sock:
        for _ in range(60):
            sock.sendall(request(run, keep_alive=True, headers={
                "CIMMethod": "RunDiagnostic", "CIMObject": "root%2Fcimv2%3AZORQ_NetDiagService"}))
            read_answer(sock)
    records = message(imethod("EnumerateInstances", classname("ZORQ_NetDiagRecord")))
    for te in ("trailers", None):
        case = f"a long enumeration {'with' if te else 'without'} TE: trailers"
        with socket.create_connection((HOST, PORT), timeout=10) as sock:
            sock.sendall(request(records, headers={"CIMMethod": "EnumerateInstances", "TE": te}))
            raw = b""
            while chunk := sock.recv(65536):
                raw += chunk
        head, _, rest = raw.partition(b"\r\n\r\n")
        if b"transfer-encoding: chunked" not in head.lower():
            fail(case, f"not chunked: {head[:300]!r}")
            continue
        body = b""
        while True:
            size_line, _, rest = rest.partition(b"\r\n")
            size = int(size_line.split(b";")[0], 16)
            if size == 0:
                break
            body += rest[:size]
            rest = rest[size + 2:]
        trailer = rest.decode(errors="replace")
        wrong = []
        if not body.endswith(b"</CIM>\n") and not body.endswith(b"</CIM>"):
            wrong.append(f"the message is cut: {body[-100:]!r}")
        if body.count(b"<VALUE.NAMEDINSTANCE>") < 60:
            wrong.append(f"{body.count(b'<VALUE.NAMEDINSTANCE>')} records")
        if te and "CIMStatusCode: 0" not in trailer:
            wrong.append(f"no CIMStatusCode trailer: {trailer!r}")
        if not te and "CIMStatusCode" in trailer:
            wrong.append(f"a trailer the client did not ask for: {trailer!r}")
        for why in wrong:
            fail(case, why)
        if not wrong:
            print(f"ok   {case}: {len(body)} bytes chunked", flush=True)

    # One address holds at most PER_ADDRESS connections; one more from it is closed at once,
    # while another address is still served.
    case = "a connection past the per-address limit"
    held = []
    try:
        # Each answered once and kept open: the server counts it.
        for i in range(PER_ADDRESS):
            held.append(socket.create_connection((HOST, PORT), timeout=5))
            held[-1].sendall(request(ENUM_NAMES, keep_alive=True))
            read_answer(held[-1])
        with socket.create_connection((HOST, PORT), timeout=5) as extra:
            try:
                extra.sendall(request(ENUM_NAMES))
                refused = extra.recv(1) == b""
            except OSError:
                refused = True
        if not refused:
            fail(case, "the connection was served")
        else:
            print(f"ok   {case}: closed", flush=True)
        with socket.create_connection((HOST, PORT), timeout=5,
                                      source_address=("127.0.0.2", 0)) as other:
            other.sendall(request(ENUM_NAMES))
            expect("another address meanwhile", read_answer(other), 200, body_has="<INSTANCENAME")
    finally:
        for sock in held:
            sock.close()
    time.sleep(0.2)  # the server has seen them go
    server_goes_on("the per-address limit")

    # Two requests on one connection are both answered.
    with socket.create_connection((HOST, PORT), timeout=5) as sock:
        for i in range(2):
            sock.sendall(request(ENUM_NAMES, keep_alive=True))
            expect(f"request {i + 1} on one connection", read_answer(sock), 200,
                   body_has="<INSTANCENAME")

    # What a client writes cannot make lines of the access log, nor reach a terminal reading it.
    forged = "ZORQ_Nope&#10;10.9.9.9 RunDiagnostic ZORQ_NetDiagService 0 42us"
    send(request(message(imethod("EnumerateInstanceNames", classname(forged)))))
    send(request(ENUM_NAMES, method="\x1b[2JEVIL\x07"))
    time.sleep(0.2)
    with open(ACCESS_LOG, "rb") as log:
        lines = log.read().splitlines()
    for line in lines:
        if not re.fullmatch(rb"127\.0\.0\.\d+ \S+ \S+ \d+( [ -~]+)? \d+us", line) or \
                any(b < 0x20 or b == 0x7F for b in line):
            fail("client text in the access log", f"a line the client wrote: {line!r}")
            break
    else:
        print(f"ok   client text in the access log: {len(lines)} lines, all the server's",
              flush=True)
    return report()


if __name__ == "__main__":
    work = tempfile.mkdtemp()
    ACCESS_LOG = os.path.join(work, "access.log")
    server, PORT = served.start([sys.argv[1], "serve", "--listen", f"{HOST}:0",
                                 "--access-log", ACCESS_LOG,
                                 "--idle-timeout", str(IDLE_TIMEOUT),
                                 "--connections-per-address", str(PER_ADDRESS)],
                                os.path.join(work, "serve.err"))
    try:
        status = main()
    finally:
        server.terminate()
        server.wait(10)
    sys.exit(status)
