"""Agents on routers: the module, the system manager, the shell, and FRR."""

import manager
import routers
import tftp


class FrrAgent(manager.SavingAgent):
    """An agent and its procd with the router's sockets and its /etc/frr. They
    are on the network of the tests, so stations and servers reach them; one of
    them is `double`, for TFTP."""

    def __init__(self, folder, router, **settings):
        folder.mkdir()
        enter = ["nsenter", "-t", str(router.holder.pid), "-m"]
        super().__init__(
            folder, wrapper=[*enter, f"--wd={folder / 'home'}"],
            backend="frr", frr_daemons=router.settings["frr_daemons"],
            **{"vtysh_seconds": 4, **settings})
        self.router = router
        self.manager.wrapper = enter

    def start(self):
        super().start()
        self.manager.start()
        self.double = tftp.TftpDouble("127.0.0.3", self.tftp_port)
        return self

    @property
    def system_cfg(self):
        return self.state / "startup" / "system.cfg"

    def close(self):
        self.double.close()
        self.manager.close()
        super().close()


def saving_command(router):
    """What a router does for a switch of its fabric."""
    settings = " ".join(f"XF_{key.upper()}='{value}'" for key, value in
                        {**router.settings, "vtysh_seconds": 3}.items())
    return (f"exec nsenter -t {router.holder.pid} -m env {settings} "
            f"{routers.QSH} -c 'copy running-config startup-config'")
