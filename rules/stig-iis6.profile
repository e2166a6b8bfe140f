# Application pools as the DISA IIS6 Site STIG asks for.
pool-recycling-time minutes=1740
pool-recycling-requests requests=35000
pool-idle-timeout minutes=20
pool-rapid-fail-limit failures=5
pool-local-system
pool-virtual-memory
pool-used-memory
pool-request-queue
pool-no-pinging
