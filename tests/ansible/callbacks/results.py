"""Keeps the result of each copy in a file of its host's name, in the folder that
the environment variable RESULTS names."""

import os
import pathlib

from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "notification"
    CALLBACK_NAME = "results"

    def keep(self, result):
        if result._task.action == "xf.switch.config_copy":
            file = pathlib.Path(os.environ["RESULTS"]) / result._host.name
            file.write_text(self._dump_results(result._result))

    def v2_runner_on_ok(self, result):
        self.keep(result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self.keep(result)
