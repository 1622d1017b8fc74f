#!/usr/bin/env python3
"""A small FTP server that fails the first uploads on purpose, then behaves.

faultyftp.py FOLDER MODE COUNT PORTFILE
  MODE drop:  the first COUNT uploads lose their data connection after 64 kB (426).
  MODE stall: the first COUNT uploads stop reading after 64 kB and never answer.
Writes its port into PORTFILE once it listens. One thread per connection; loopback only.
"""
import os
import socket
import sys
import threading
import time

folder, mode, count, portfile = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]
faults = [count]
lock = threading.Lock()


def fault_now():
    with lock:
        if faults[0] > 0:
            faults[0] -= 1
            return True
    return False


def session(ctrl):
    f = ctrl.makefile("rb")
    send = lambda line: ctrl.sendall((line + "\r\n").encode())
    send("220 listo")
    passive = None
    rename_from = None
    while True:
        line = f.readline()
        if not line:
            break
        verb, _, arg = line.decode("utf-8", "replace").rstrip("\r\n").partition(" ")
        verb = verb.upper()
        if verb == "USER":
            send("331 contraseña")
        elif verb == "PASS":
            send("230 dentro")
        elif verb in ("TYPE", "MODE", "STRU", "OPTS"):
            send("200 vale")
        elif verb == "PWD":
            send('257 "/"')
        elif verb in ("CWD", "MKD"):
            send("250 vale")
        elif verb in ("EPSV", "PASV"):
            passive = socket.socket()
            passive.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 16384)
            passive.bind(("127.0.0.1", 0))
            passive.listen(1)
            port = passive.getsockname()[1]
            if verb == "EPSV":
                send("229 (|||%d|)" % port)
            else:
                send("227 (127,0,0,1,%d,%d)" % (port >> 8, port & 255))
        elif verb == "SIZE":
            path = os.path.join(folder, os.path.basename(arg))
            send("213 %d" % os.path.getsize(path) if os.path.isfile(path) else "550 no existe")
        elif verb == "MDTM":
            send("550 no")
        elif verb == "REST":
            send("350 vale")
        elif verb == "NLST":
            data, _ = passive.accept()
            send("150 lista")
            names = [n for n in sorted(os.listdir(folder)) if not n.startswith(".")]
            data.sendall("".join(n + "\r\n" for n in names).encode())
            data.close()
            send("226 hecho")
        elif verb == "STOR":
            data, _ = passive.accept()
            send("150 adelante")
            path = os.path.join(folder, os.path.basename(arg))
            received = bytearray()
            fault = fault_now()
            while True:
                chunk = data.recv(65536)
                if not chunk:
                    break
                received += chunk
                if fault and len(received) >= 65536:
                    break
            if fault and mode == "drop":
                data.close()
                with open(path, "wb") as out:
                    out.write(received)
                send("426 conexión cortada")
                continue
            if fault and mode == "stall":
                with open(path, "wb") as out:
                    out.write(received)
                time.sleep(30)   # the client gives up first
                data.close()
                break
            data.close()
            with open(path, "wb") as out:
                out.write(received)
            send("226 recibido")
        elif verb == "RNFR":
            rename_from = os.path.join(folder, os.path.basename(arg))
            send("350 nuevo nombre" if os.path.exists(rename_from) else "550 no existe")
        elif verb == "RNTO":
            os.rename(rename_from, os.path.join(folder, os.path.basename(arg)))
            send("250 renombrado")
        elif verb == "DELE":
            path = os.path.join(folder, os.path.basename(arg))
            if os.path.isfile(path):
                os.remove(path)
                send("250 borrado")
            else:
                send("550 no existe")
        elif verb == "QUIT":
            send("221 adiós")
            break
        else:
            send("502 no")
    ctrl.close()


listener = socket.socket()
listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
listener.bind(("127.0.0.1", 0))
listener.listen(8)
with open(portfile + ".tmp", "w") as p:
    p.write(str(listener.getsockname()[1]))
os.rename(portfile + ".tmp", portfile)
while True:
    conn, _ = listener.accept()
    threading.Thread(target=session, args=(conn,), daemon=True).start()
