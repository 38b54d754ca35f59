import pytest
import tavrin


@pytest.fixture(autouse=True)
def simulation():
    """A fresh simulated PhoXi Control with its two default scanners."""
    tavrin.sim.reset()
    yield tavrin.sim
    tavrin.sim.reset()


@pytest.fixture
def device():
    with tavrin.PhoXiDevice() as dev:
        dev.connect(tavrin.sim.DEFAULT_SCANNER_ID, type="device")
        yield dev
