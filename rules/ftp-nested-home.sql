-- title: A directory contains one of another site
-- severity: low
-- category: housekeeping
-- why: The users of one site see the files of the other.
-- fix: Move one of the directories, or make the sites one.
-- requires: ftp_site.path ftp_directory.path
-- columns: path text identifying, contains text
with places as (
  select object_id, server, identifier as site, path, rtrim(fold(path), '\') || '\' as folded from ftp_site
  union all
  select object_id, server, site_identifier, path, rtrim(fold(path), '\') || '\' from ftp_directory),
-- The site of a path; null if it is of several.
paths as (
  select object_id, server, site, path, folded,
         case when min(site) over same = max(site) over same then site end as path_site
  from places where path <> ''
  window same as (partition by server, folded)),
-- In this order a directory is followed by what it contains. A change is a path of another site than the one before.
ordered as (
  select object_id, server, site, path, folded,
         lead(folded) over following as next, lead(path_site) over following as next_site,
         case when coalesce(lag(folded) over following = folded or lag(path_site) over following = path_site, false)
              then null else folded end as change
  from paths
  window following as (partition by server order by folded, object_id)),
candidates as (
  select object_id, site, path, folded,
         max(case when next <> folded then next end) over same as next,
         max(case when next <> folded then next_site end) over same as next_site,
         -- The first one after the next that is of another site than the one before it.
         min(change) over (partition by server order by folded desc
                           groups between unbounded preceding and 2 preceding) as later
  from ordered
  window same as (partition by server, folded)),
others as (
  select object_id, path, folded, case when next_site = site then later else next end as contains from candidates)
select object_id, null as holds, path, null as contains from places where path is null
union all
select object_id, starts_with(contains, folded), path, contains from others where contains is not null
