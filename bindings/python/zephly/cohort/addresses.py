# SPDX-License-Identifier: MIT
"""Which schedulers are safe to use: Dask runs whatever code it receives, for everybody who can connect."""

from __future__ import annotations

import dataclasses
import ipaddress
import urllib.parse


@dataclasses.dataclass(frozen=True)
class Certificates:
    """Files in PEM format: the authority that signed all others, and the certificate and key of this client."""

    ca: str
    cert: str
    key: str


def _is_loopback(host: str) -> bool:
    if host == "localhost":
        return True
    try:
        return ipaddress.ip_address(host).is_loopback
    except ValueError:
        return False  # another name: what it resolves to can change


def check_scheduler(address: str, certificates: Certificates | None) -> None:
    """Raises ValueError, one line, unless the scheduler is on this machine or authenticates everybody by TLS."""
    parts = urllib.parse.urlsplit(address)
    try:
        host, port = parts.hostname, parts.port
    except ValueError:
        host, port = None, None
    if not host or port is None or parts.path or parts.query or parts.fragment or parts.username is not None:
        raise ValueError(f"{address}: an address as tls://HOST:PORT expected")
    if parts.scheme == "tls":
        if certificates is None:
            raise ValueError(f"{address}: tls:// needs --tls-ca, --tls-cert and --tls-key")
        return
    if parts.scheme != "tcp":
        raise ValueError(f"{address}: {parts.scheme or 'no protocol'}: tls:// expected")
    if certificates is not None:
        raise ValueError(f"{address}: certificates are for tls://, and tcp:// is not encrypted")
    if not _is_loopback(host):
        raise ValueError(
            f"{address}: everybody in the network can run code on a tcp:// scheduler and its workers; "
            "use tls:// with certificates (docs/cohorts.md)"
        )
