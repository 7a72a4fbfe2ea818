"""The Processing provider: one algorithm per row of the algorithm table."""
import importlib

from qgis.core import Qgis, QgsMessageLog, QgsProcessingProvider

from .algorithm import Algorithm
from .analyses import ANALYSES


class Provider(QgsProcessingProvider):
    def id(self):
        return "statisticsanalyst"

    def name(self):
        return "StatisticsAnalyst"

    def longName(self):  # noqa: N802
        return "StatisticsAnalyst spatial statistics"

    def loadAlgorithms(self):  # noqa: N802
        try:
            importlib.import_module("statisticsanalyst")  # what the algorithms run
        except ImportError as error:
            # Without the module the toolbox would offer algorithms that cannot run.
            QgsMessageLog.logMessage(
                f"The statisticsanalyst Python module cannot be imported ({error}); install it, or for a build "
                "tree set PYTHONPATH=<build>/apps/python before starting QGIS.", "StatisticsAnalyst", Qgis.Critical)
            return
        for analysis in ANALYSES:
            self.addAlgorithm(Algorithm(analysis))
