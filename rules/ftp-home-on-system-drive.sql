-- title: Home directory is on the system drive
-- severity: low
-- category: security
-- why: Users who fill the drive stop the whole machine, and a way out of the directory leads to the system.
-- fix: Move the content to a drive of its own.
-- requires: ftp_site.path
-- columns: path text identifying
-- param: drive text C:
select object_id, starts_with(fold(path), fold(:drive)) as holds, path
from ftp_site
