"""A shelf of simulated modules on disk and a driver on it: what the demo and the client's tests
stand on."""
