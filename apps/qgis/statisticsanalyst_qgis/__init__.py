"""StatisticsAnalyst as a QGIS plugin: a Processing provider and nothing else,
so that qgis_process (which starts only the Processing side of plugins) and
the desktop offer the same algorithms."""


def classFactory(iface):  # noqa: N802 (the name QGIS looks for)
    from .plugin import Plugin
    return Plugin()
