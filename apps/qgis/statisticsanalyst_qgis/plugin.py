"""The plugin object QGIS creates: it registers the Processing provider, on
the desktop (initGui) and in qgis_process (initProcessing) alike."""
from qgis.core import QgsApplication


class Plugin:
    def __init__(self):
        self.provider = None

    def initProcessing(self):  # noqa: N802
        if self.provider is None:
            from .provider import Provider
            self.provider = Provider()
            QgsApplication.processingRegistry().addProvider(self.provider)

    def initGui(self):  # noqa: N802
        self.initProcessing()

    def unload(self):
        if self.provider is not None:
            QgsApplication.processingRegistry().removeProvider(self.provider)
            self.provider = None
