#include "device_row.h"

#include "device_icon.h"
#include "device_text.h"
#include "tv_toolkit.h"

namespace quillon_devices {

namespace {

std::string Text(GtkWidget* label) {
    std::string text = gtk_label_get_text(GTK_LABEL(label));
    for (char& c : text)
        if (c == '\n')
            c = ';';
    return text;
}

}  // namespace

DeviceRow MakeDeviceRow(const StoredDevice& device) {
    using quillon_ux::PlainLabel;
    DeviceRow made;
    made.device = device;
    made.icon = quillon_ux::DeviceIconName(device.devtype, device.devicon);
    GtkWidget* icon = gtk_image_new_from_icon_name(made.icon);
    gtk_image_set_pixel_size(GTK_IMAGE(icon), 64);

    made.name = PlainLabel(quillon_ux::DisplayName(device.name), "quillon-device-name", false);
    made.addresses =
        PlainLabel(quillon_ux::AddressLines(device.bt_mac, device.wifi_mac, device.p2p_mac),
                   "quillon-addresses", false);
    GtkWidget* facts = gtk_box_new(GTK_ORIENTATION_VERTICAL, 4);
    gtk_widget_set_hexpand(facts, TRUE);
    gtk_box_append(GTK_BOX(facts), made.name);
    gtk_box_append(GTK_BOX(facts), made.addresses);

    made.verdict = PlainLabel(VerdictWord(device.status), "quillon-verdict", false);
    gtk_widget_add_css_class(made.verdict, VerdictStyle(device.status));
    made.mirroring =
        PlainLabel(device.mirroring ? "TV-initiated mirroring on" : "TV-initiated mirroring off",
                   "quillon-mirroring", false);
    // The verdict column keeps its words on one line; the name and addresses wrap instead.
    gtk_label_set_wrap(GTK_LABEL(made.verdict), FALSE);
    gtk_label_set_wrap(GTK_LABEL(made.mirroring), FALSE);
    GtkWidget* state = gtk_box_new(GTK_ORIENTATION_VERTICAL, 4);
    gtk_widget_set_valign(state, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(state), made.verdict);
    gtk_box_append(GTK_BOX(state), made.mirroring);

    GtkWidget* line = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 24);
    for (GtkWidget* child : {icon, facts, state})
        gtk_box_append(GTK_BOX(line), child);
    made.row = gtk_list_box_row_new();
    gtk_list_box_row_set_child(GTK_LIST_BOX_ROW(made.row), line);
    // The remote's focus stays on the actions; Up and Down move the selection.
    gtk_widget_set_focusable(made.row, FALSE);
    gtk_widget_add_css_class(made.row, "quillon-device");
    return made;
}

std::string DescribeRow(const DeviceRow& row) {
    return std::string(row.device.reverse ? "reverse" : "normal") + " list: name [" +
           Text(row.name) + "] verdict [" + Text(row.verdict) + "] mirroring [" +
           Text(row.mirroring) + "] addresses [" + Text(row.addresses) + "] icon [" + row.icon +
           "]";
}

}  // namespace quillon_devices
