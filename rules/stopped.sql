-- title: A site or pool is stopped
-- severity: info
-- category: housekeeping
-- why: It is no longer needed and can probably be removed, or its users are missing it.
-- fix: Start it or remove it.
-- requires: ftp_site.state app_pool.state
-- columns: state text
select object_id, state = 'Stopped' as holds, state from ftp_site
union all
select object_id, state = 'Stopped', state from app_pool
