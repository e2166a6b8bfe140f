-- title: The log has no user name or no client address
-- severity: low
-- category: security
-- why: The log does not say who did something, or from where.
-- fix: Select the fields User Name and Client IP Address of the W3C log.
-- references: NIST | SP 800-7 | http://ftp.sunet.se/mirror/archive/ftp.sunet.se/pub/security/csir/nist/nistpubs/800-7/node122.html
-- requires: ftp_site.logging ftp_site.log_format ftp_site.log_user_name
-- columns: log_user_name boolean, log_client_ip boolean
select object_id,
       logging and log_format = 'W3C Extended Log File Format' and (not log_user_name or not log_client_ip) as holds,
       log_user_name, log_client_ip
from ftp_site
