#!/usr/bin/env python3
"""A small directory agent for trying and testing the agent client.

It speaks the agent's datagram and TCP forms with a codec of its own, keeps
providers and triggers in memory, and logs every datagram. It serves one
address: the locate probe and handler queries at the agent port, the session
at the session port, listings at the TCP port. Standard input takes commands:
  ask <pid> 2|10   send are-you-alive or reconnect to the client of that pid
  drop <type> <n>  ignore the next n session requests of that type
  again            send the last ask once more, unchanged
  silent / back    stop answering anything but ask / answer again
"""
import argparse
import os
import select
import socket
import struct
import sys
import time

VERSION = "Kelvanor 2.0"


# ---- Codec: 4-byte big-endian slots, strings as a rounded size and the text.

class Writer:
    def __init__(self):
        self.out = bytearray()
        self.classes = {}

    def int(self, v):
        self.out += struct.pack(">i", v)

    def uint(self, v):
        self.out += struct.pack(">I", v & 0xFFFFFFFF)

    def cstring(self, s):
        raw = s.encode() + b"\0"
        size = (len(raw) + 3) & ~3
        self.int(size)
        self.out += raw + b"\0" * (size - len(raw))

    def block(self, b):
        self.out += b + b"\0" * (-len(b) % 4)

    def tag(self, c):
        self.out += c.encode() + b"\0\0\0"

    def tbstring(self, s):
        self.uint(len(s.encode()))
        self.cstring(s)

    def obj(self, o):
        if o is None:
            self.tag(":")
            self.cstring("::")
            return
        cls = o["cls"]
        if cls in self.classes:
            self.tag("#")
            self.int(self.classes[cls])
        else:
            self.classes[cls] = len(self.classes)
            self.tag(":")
            self.cstring(cls)
        self.body(o)

    def body(self, o):
        cls = o["cls"]
        if cls == "DSAddr":
            self.block(o["addr"])
            self.int(o["port"])
        elif cls == "DSName":
            self.tbstring(o["name"])
            self.int(o["arg"])
            self.int(o["svc"])
            self.obj(o.get("argument"))
        elif cls == "DSProvider":
            for k in ("name", "address", "client", "agent"):
                self.body(o[k])
            self.int(o["proto"])
            self.int(o["admin"])
        elif cls == "DSSet":
            self.uint(max(16, len(o["items"])))
            self.uint(len(o["items"]))
            for x in o["items"]:
                self.obj(x)
        elif cls in ("DSRequest", "DSReply"):
            self.tbstring(VERSION)
            self.int(1 if cls == "DSRequest" else 2)
            self.uint(o["num"])
            self.int(len(o["data"]))
            self.block(o["data"])
            if cls == "DSRequest":
                self.int(o["type"])
                self.obj(o.get("arg"))
            else:
                self.int(o["type"])
                self.uint(o["reqnum"])
                self.int(o["status"])
                self.obj(o.get("result"))
        elif cls in ("DSAMessage", "DSAReply"):
            self.tbstring(VERSION)
            self.int(o["type"])
            self.uint(o["num"])
            self.obj(o.get("body"))
            self.int(len(o["data"]))
            self.block(o["data"])
            if cls == "DSAReply":
                self.int(o["rtype"])
                self.uint(o["reqnum"])
                self.int(o["status"])
        else:
            raise ValueError("cannot write " + cls)


def frame(o):
    w = Writer()
    w.obj(o)
    return struct.pack(">i", len(w.out) + 4) + bytes(w.out)


class Short(Exception):
    pass


class Reader:
    def __init__(self, data):
        self.d = data
        self.p = 0
        self.classes = []

    def take(self, n):
        if n < 0 or self.p + n > len(self.d):
            raise Short()
        b = self.d[self.p:self.p + n]
        self.p += n
        return b

    def int(self):
        return struct.unpack(">i", self.take(4))[0]

    def uint(self):
        return struct.unpack(">I", self.take(4))[0]

    def cstring(self):
        size = self.int()
        return self.take(size).split(b"\0")[0].decode(errors="replace")

    def block(self, n):
        b = self.take(n)
        self.take(-n % 4)
        return b

    def tbstring(self):
        self.uint()
        return self.cstring()

    def obj(self):
        t = self.take(4)[:1].decode(errors="replace")
        if t == ":":
            cls = self.cstring()
            if cls == "::":
                return None
            self.classes.append(cls)
        elif t == "#":
            cls = self.classes[self.int()]
        else:
            raise Short()
        return self.body(cls)

    def body(self, cls):
        o = {"cls": cls}
        if cls == "DSAddr":
            o["addr"] = self.block(4)
            o["port"] = self.int()
        elif cls == "DSName":
            o["name"] = self.tbstring()
            o["arg"] = self.int()
            o["svc"] = self.int()
            o["argument"] = self.obj()
        elif cls == "DSProvider":
            o["name"] = self.body("DSName")
            for k in ("address", "client", "agent"):
                o[k] = self.body("DSAddr")
            o["proto"] = self.int()
            o["admin"] = self.int()
        elif cls == "DSLogin":
            for k in ("host", "login", "third", "user"):
                o[k] = self.tbstring()
            o["pid"] = self.int()
            o["machine"] = self.int()
            o["verify"] = self.int()
        elif cls in ("DSRequest", "DSReply"):
            self.tbstring()
            o["mtype"] = self.int()
            o["num"] = self.uint()
            o["data"] = self.block(self.int())
            o["type"] = self.int()
            if cls == "DSRequest":
                o["arg"] = self.obj()
            else:
                o["reqnum"] = self.uint()
                o["status"] = self.int()
                o["result"] = self.obj()
        elif cls in ("DSAMessage", "DSAReply"):
            self.tbstring()
            o["type"] = self.int()
            o["num"] = self.uint()
            o["body"] = self.obj()
            o["data"] = self.block(self.int())
            if cls == "DSAReply":
                o["rtype"] = self.int()
                o["reqnum"] = self.uint()
                o["status"] = self.int()
        else:
            raise Short()
        return o


def unframe(data):
    if len(data) < 4 or struct.unpack(">i", data[:4])[0] != len(data):
        return None
    try:
        return Reader(data[4:]).obj()
    except (Short, IndexError, UnicodeDecodeError):
        return None


def addr(host, port):
    return {"cls": "DSAddr", "addr": socket.inet_aton(host), "port": port}


def names_of(o, out):
    if isinstance(o, dict):
        if o.get("cls") == "DSName":
            out.append(o["name"])
        elif o.get("cls") == "DSLogin":
            out.append(o["login"])
        for v in o.values():
            names_of(v, out)
    elif isinstance(o, list):
        for v in o:
            names_of(v, out)
    return out


# ---- The agent.

class Agent:
    def __init__(self, a):
        self.a = a
        self.start = time.time()
        self.num = a.first_number - 1
        self.anum = a.first_number - 1
        self.clients = {}       # (host, port) -> {"pid", "kept": {reqnum: bytes}}
        self.providers = []     # [(client, provider)]
        self.triggers = []      # [(client, name, reqnum)]
        self.notices = {}       # msgnum -> (client, bytes): notifications until acknowledged
        self.drops = {}
        self.silent = False
        self.last_ask = None
        self.log = open(a.log, "a", buffering=1) if a.log else None
        self.session = self.udp(a.addr, a.session_port)
        self.agentsock = self.udp("10.99.0.255" if a.bcast else a.addr, a.agent_port)
        self.tcp = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self.tcp.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.tcp.bind((a.addr, a.tcp_port))
        self.tcp.listen(16)
        self.tcp_port = self.tcp.getsockname()[1]
        for text in a.provider:
            name, svc = text.rsplit(":", 1)
            self.providers.append((None, {
                "cls": "DSProvider", "proto": 0, "admin": 0,
                "name": {"cls": "DSName", "name": name, "arg": 1, "svc": int(svc), "argument": None},
                "address": addr(a.addr, 1), "client": addr(a.addr, 0),
                "agent": addr(a.addr, a.agent_port)}))

    def udp(self, host, port):
        s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        s.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        s.bind((host, port))
        return s

    def next(self):
        self.num += 1
        return self.num

    def note(self, way, o, peer):
        if not self.log:
            return
        ms = int((time.time() - self.start) * 1000)
        if o is None:
            self.log.write("%d %s undecodable %s\n" % (ms, way, peer))
            return
        parts = [str(ms), way, o["cls"], "type=%s" % o.get("type"), "num=%s" % o.get("num"),
                 "req=%s" % o.get("reqnum"), "status=%s" % o.get("status"),
                 "rtype=%s" % o.get("rtype"), "names=%s" % ",".join(names_of(o, [])),
                 "peer=%s:%d" % peer]
        self.log.write(" ".join(parts) + "\n")

    def send(self, sock, o, peer):
        data = frame(o)
        self.note("out", o, peer)
        try:
            sock.sendto(data, peer)
        except OSError:
            pass
        return data

    def reply(self, req, rtype, status, result=None):
        return {"cls": "DSReply", "num": self.next(), "data": req["data"], "type": rtype,
                "reqnum": req["num"], "status": status, "result": result}

    def areply(self, msg, body):
        self.anum += 1
        return {"cls": "DSAReply", "type": 5, "num": self.anum, "body": body, "data": msg["data"],
                "rtype": 5, "reqnum": msg["num"], "status": 0}

    def agent_message(self, o, peer, sock):
        # A socket bound to the broadcast address cannot send: the session
        # socket answers for it.
        out = self.session if self.a.bcast else sock
        if o["type"] == 6 and sock is self.agentsock:
            self.send(out, self.areply(o, addr(self.a.addr, self.a.session_port)), peer)
        elif o["type"] == 9:
            self.send(out, self.areply(o, addr(self.a.addr, self.tcp_port)), peer)

    def matching(self, name):
        for _, p in self.providers:
            if p["name"]["name"] == name["name"] and p["name"]["svc"] == name["svc"]:
                return p
        return None

    def request(self, req, peer):
        t = req["type"]
        if self.drops.get(t, 0) > 0:
            self.drops[t] -= 1
            return
        client = self.clients.get(peer)
        if client and req["num"] in client["kept"]:
            self.note("out-again", unframe(client["kept"][req["num"]]), peer)
            self.session.sendto(client["kept"][req["num"]], peer)
            return
        if t == 0:
            arg = req.get("arg") or {}
            client = self.clients[peer] = {"pid": arg.get("pid"), "kept": {}}
            rep = self.reply(req, 2, self.a.login_status)
        elif not client:
            rep = self.reply(req, t, -97)
        elif t == 2:
            rep = self.reply(req, 4, 0)
        elif t == 3:
            p = self.matching(req["arg"])
            rep = self.reply(req, 3, 0 if p else -1, p)
        elif t == 4:
            p = self.matching(req["arg"])
            if p:
                rep = self.reply(req, 6, 0, p)
            else:
                self.triggers.append((peer, req["arg"], req["num"]))
                rep = self.reply(req, 4, 0)
        elif t == 5:
            p = dict(req["arg"])
            p["agent"] = addr(self.a.addr, self.a.agent_port)
            self.providers.append((peer, p))
            rep = self.reply(req, 5, 0)
        elif t == 6:
            gone = req["arg"]
            self.providers = [(c, p) for c, p in self.providers
                              if not (p["name"]["name"] == gone["name"]["name"]
                                      and p["address"] == gone["address"])]
            rep = self.reply(req, 6, 0)
        elif t == 7:
            self.triggers = [x for x in self.triggers
                             if not (x[0] == peer and x[1]["name"] == req["arg"]["name"])]
            rep = self.reply(req, 7, 0)
        elif t == 8:
            items = []
            for pa in self.a.peer:
                h, port = pa.rsplit(":", 1)
                items.append(addr(h, int(port)))
            rep = self.reply(req, 8, 0, {"cls": "DSSet", "items": items})
        elif t == 10:
            self.clients.pop(peer, None)
            return
        else:
            rep = self.reply(req, t, -1)
        data = self.send(self.session, rep, peer)
        if client is not None and peer in self.clients:
            self.clients[peer]["kept"][req["num"]] = data
        if t == 5:
            self.fire(p)

    def fire(self, p):
        still = []
        for c, name, reqnum in self.triggers:
            if name["name"] == p["name"]["name"] and name["svc"] == p["name"]["svc"]:
                note = {"cls": "DSReply", "num": self.next(), "data": b"\0\0\0\0", "type": 6,
                        "reqnum": reqnum, "status": 0, "result": p}
                self.notices[note["num"]] = (c, self.send(self.session, note, c))
            else:
                still.append((c, name, reqnum))
        self.triggers = still

    def session_input(self):
        data, peer = self.session.recvfrom(65536)
        o = unframe(data)
        self.note("in", o, peer)
        if o is None:
            return
        if o["cls"] in ("DSAMessage", "DSAReply"):
            if not self.silent:
                self.agent_message(o, peer, self.session)
        elif o["cls"] == "DSReply":
            if o["type"] == 1:
                self.notices.pop(o["reqnum"], None)
        elif o["cls"] == "DSRequest" and not self.silent:
            self.request(o, peer)

    def agent_input(self):
        data, peer = self.agentsock.recvfrom(65536)
        o = unframe(data)
        self.note("in-agent", o, peer)
        if o is not None and o["cls"] == "DSAMessage" and not self.silent:
            self.agent_message(o, peer, self.agentsock)

    def tcp_input(self):
        conn, _ = self.tcp.accept()
        conn.settimeout(5)
        try:
            head = conn.recv(4, socket.MSG_WAITALL)
            n = struct.unpack(">i", head)[0]
            body = conn.recv(n - 4, socket.MSG_WAITALL)
            o = unframe(head + body)
            self.note("in-tcp", o, conn.getpeername())
            if o and o["cls"] == "DSRequest" and o["type"] in (9, 11):
                if o["type"] == 9:
                    want = o.get("arg")
                    items = [p for _, p in self.providers
                             if not want or p["name"]["name"] == want["name"]]
                else:
                    items, seen = [], set()
                    for _, p in self.providers:
                        key = (p["name"]["name"], p["name"]["svc"])
                        if key not in seen:
                            seen.add(key)
                            items.append(dict(p["name"], argument=None))
                rep = self.reply(o, o["type"], 0, {"cls": "DSSet", "items": items})
                conn.sendall(frame(rep))
        except (OSError, struct.error):
            pass
        finally:
            conn.close()

    def command(self, line):
        words = line.split()
        if self.log:
            self.log.write("%d cmd %s\n" % (int((time.time() - self.start) * 1000), " ".join(words)))
        if words[:1] == ["ask"] and len(words) == 3:
            for peer, c in self.clients.items():
                if str(c["pid"]) == words[1]:
                    req = {"cls": "DSRequest", "num": self.next(), "data": b"\0\0\0\0",
                           "type": int(words[2]), "arg": None}
                    self.last_ask = (self.send(self.session, req, peer), peer)
        elif words == ["again"] and self.last_ask:
            self.session.sendto(*self.last_ask)
        elif words[:1] == ["drop"] and len(words) == 3:
            self.drops[int(words[1])] = int(words[2])
        elif words == ["silent"]:
            self.silent = True
        elif words == ["back"]:
            self.silent = False

    def run(self):
        if self.a.ready:
            tmp = self.a.ready + ".tmp"
            with open(tmp, "w") as f:
                f.write("%d\n" % self.tcp_port)
            os.rename(tmp, self.a.ready)
        deadline = self.start + self.a.limit
        socks = [self.session, self.agentsock, self.tcp]
        stdin_open = True
        last_resend = time.time()
        while time.time() < deadline:
            watch = socks + ([sys.stdin] if stdin_open else [])
            ready, _, _ = select.select(watch, [], [], 0.2)
            for s in ready:
                if s is self.session:
                    self.session_input()
                elif s is self.agentsock:
                    self.agent_input()
                elif s is self.tcp:
                    self.tcp_input()
                else:
                    line = sys.stdin.readline()
                    if not line:
                        stdin_open = False
                    else:
                        self.command(line)
            if time.time() - last_resend >= 1:
                last_resend = time.time()
                for num, (c, data) in list(self.notices.items()):
                    self.note("out-again", unframe(data), c)
                    self.session.sendto(data, c)


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    p.add_argument("--addr", default="127.0.0.1")
    p.add_argument("--agent-port", type=int, default=14000)
    p.add_argument("--session-port", type=int, default=0)
    p.add_argument("--tcp-port", type=int, default=0)
    p.add_argument("--peer", action="append", default=[], help="another agent, host:port")
    p.add_argument("--provider", action="append", default=[], help="a provider held from the start, name:type")
    p.add_argument("--first-number", type=int, default=1)
    p.add_argument("--login-status", type=int, default=0, choices=[0, -98, -96, -100])
    p.add_argument("--bcast", action="store_true")
    p.add_argument("--ready")
    p.add_argument("--log")
    p.add_argument("--limit", type=float, default=120)
    a = p.parse_args()
    if a.session_port == 0:
        probe = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        probe.bind((a.addr, 0))
        a.session_port = probe.getsockname()[1]
        probe.close()
    Agent(a).run()


if __name__ == "__main__":
    main()
